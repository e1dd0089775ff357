// What a vector layer holds: fields, and shapes with one value for each of them. Handles (layer.cpp), files and formats
// see a layer as a Table; the one that can be written keeps its numbers and texts apart, because spectra have thousands
// of each and the texts are mostly the same few words.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kshost {

enum FieldType { kRealField = 2, kTextField = 3 };

struct Field {
    std::string name;
    int type;
    std::string format;  // how a program may show its values; empty until it is set
    bool operator==(const Field& o) const { return name == o.name && type == o.type && format == o.format; }
};

/// A layer as it is read. Shapes and fields count from 0; callers ask for what is there.
class Table {
public:
    virtual ~Table() = default;
    const std::string& name() const { return name_; }
    const std::string& description() const { return description_; }
    const std::string& detail() const { return detail_; }
    const std::vector<Field>& fields() const { return fields_; }

    virtual int shapes() const = 0;
    virtual int shapeType(int shape) const = 0;
    /// Of a real field. Reading may fail with an exception where values stay in a file.
    virtual double number(int shape, int field) = 0;
    /// Of a text field; valid until the next call.
    virtual std::string_view text(int shape, int field) = 0;

protected:
    std::string name_, description_, detail_;
    std::vector<Field> fields_;
};

/// Texts that are kept once however often they are used.
class TextPool {
public:
    using Id = std::uint32_t;
    static constexpr Id kEmpty = 0;

    TextPool() : texts_(1) {}
    TextPool(const TextPool&) = delete;
    TextPool& operator=(const TextPool&) = delete;

    /// Counts one more use.
    Id keep(std::string_view text);
    /// Counts one use less; an unused text is given up.
    void drop(Id id);
    std::string_view text(Id id) const { return texts_[id].text; }
    size_t size() const { return ids_.size(); }

private:
    struct Entry {
        std::string text;
        std::uint64_t uses = 0;
    };
    std::deque<Entry> texts_;  // a deque keeps its elements in place, so that the keys below stay valid
    std::unordered_map<std::string_view, Id> ids_;
    std::vector<Id> free_;
};

/// A layer in memory that knows what has changed since it was last stored.
class EditableTable : public Table {
public:
    EditableTable(std::string name, std::string description, std::string detail);

    int shapes() const override { return static_cast<int>(rows_.size()); }
    int shapeType(int shape) const override { return row(shape).type; }
    double number(int shape, int field) override;
    std::string_view text(int shape, int field) override;

    /// Shapes that are there get 0 or an empty text. Returns the field's number.
    int addField(std::string name, int type);
    void setFormat(int field, std::string format);
    int addShape(int type);
    void setNumber(int shape, int field, double value);
    void setText(int shape, int field, std::string_view value);

    // A shape as it is stored: the values of the real fields as doubles, those of the text fields each with a 0 behind.
    std::string packedNumbers(int shape) const;
    std::string packedTexts(int shape) const;
    /// Adds a stored shape; false when the bytes are not one value for each field.
    bool addPacked(int type, std::string_view numbers, std::string_view texts);
    /// Forgets everything, to be filled anew.
    void clear(std::string name, std::string description, std::string detail);

    bool dirty() const { return whole_ || fieldsChanged_ || stored_ < shapes() || !touched_.empty(); }
    /// True when storing means storing every shape.
    bool changedWhole() const { return whole_; }
    /// Shapes below this number were stored before; those among them that changed are `touched`.
    int storedShapes() const { return stored_; }
    const std::set<int>& touchedShapes() const { return touched_; }
    void markStored();

private:
    struct Row {
        int type;
        std::vector<double> numbers;        // of the real fields in order; shorter where the rest is 0
        std::vector<TextPool::Id> strings;  // of the text fields in order; shorter where the rest is empty
    };

    const Row& row(int shape) const { return rows_[static_cast<size_t>(shape)]; }
    Row& changedRow(int shape);
    size_t placeOf(int field) const { return places_[static_cast<size_t>(field)]; }

    std::vector<size_t> places_;  // of a field among those of its type
    size_t numberCount_ = 0;
    size_t textCount_ = 0;
    std::vector<Row> rows_;
    std::unique_ptr<TextPool> pool_ = std::make_unique<TextPool>();

    bool whole_ = true;
    bool fieldsChanged_ = true;
    int stored_ = 0;
    std::set<int> touched_;
};

}  // namespace kshost
