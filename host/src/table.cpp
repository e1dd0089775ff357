// Tables in memory: values by shape and field, and what has changed since they were stored.
#include "table.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace kshost {

TextPool::Id TextPool::keep(std::string_view text) {
    if (text.empty()) return kEmpty;
    if (const auto found = ids_.find(text); found != ids_.end()) {
        ++texts_[found->second].uses;
        return found->second;
    }
    if (free_.empty() && texts_.size() > std::numeric_limits<Id>::max())
        throw std::length_error("a layer holds too many different texts");
    Id id = static_cast<Id>(texts_.size());
    if (free_.empty()) {
        texts_.push_back({std::string(text), 1});
    } else {
        id = free_.back();
        texts_[id] = {std::string(text), 1};
        free_.pop_back();
    }
    ids_.emplace(texts_[id].text, id);
    return id;
}

void TextPool::drop(Id id) {
    if (id == kEmpty || --texts_[id].uses > 0) return;
    ids_.erase(texts_[id].text);
    texts_[id].text = std::string();
    free_.push_back(id);
}

EditableTable::EditableTable(std::string name, std::string description, std::string detail) {
    clear(std::move(name), std::move(description), std::move(detail));
}

void EditableTable::clear(std::string name, std::string description, std::string detail) {
    name_ = std::move(name);
    description_ = std::move(description);
    detail_ = std::move(detail);
    fields_.clear();
    places_.clear();
    numberCount_ = textCount_ = 0;
    rows_.clear();
    pool_ = std::make_unique<TextPool>();
    whole_ = fieldsChanged_ = true;
    stored_ = 0;
    touched_.clear();
}

double EditableTable::number(int shape, int field) {
    const std::vector<double>& numbers = row(shape).numbers;
    const size_t place = placeOf(field);
    return place < numbers.size() ? numbers[place] : 0.0;
}

std::string_view EditableTable::text(int shape, int field) {
    const std::vector<TextPool::Id>& strings = row(shape).strings;
    const size_t place = placeOf(field);
    return pool_->text(place < strings.size() ? strings[place] : TextPool::kEmpty);
}

int EditableTable::addField(std::string name, int type) {
    fields_.push_back({std::move(name), type, {}});
    places_.push_back(type == kRealField ? numberCount_++ : textCount_++);
    fieldsChanged_ = true;
    // Stored shapes have one value for each of the fields they were stored with.
    if (stored_ > 0) whole_ = true;
    return static_cast<int>(fields_.size()) - 1;
}

void EditableTable::setFormat(int field, std::string format) {
    std::string& old = fields_[static_cast<size_t>(field)].format;
    if (old == format) return;
    old = std::move(format);
    fieldsChanged_ = true;
}

int EditableTable::addShape(int type) {
    if (rows_.size() >= static_cast<size_t>(std::numeric_limits<int>::max()))
        throw std::length_error("a layer holds too many shapes");
    rows_.push_back({type, {}, {}});
    return shapes() - 1;
}

EditableTable::Row& EditableTable::changedRow(int shape) {
    if (shape < stored_ && !whole_) touched_.insert(shape);
    return rows_[static_cast<size_t>(shape)];
}

void EditableTable::setNumber(int shape, int field, double value) {
    std::vector<double>& numbers = changedRow(shape).numbers;
    if (numbers.size() < numberCount_) numbers.resize(numberCount_);
    numbers[placeOf(field)] = value;
}

void EditableTable::setText(int shape, int field, std::string_view value) {
    std::vector<TextPool::Id>& strings = changedRow(shape).strings;
    if (strings.size() < textCount_) strings.resize(textCount_, TextPool::kEmpty);
    TextPool::Id& id = strings[placeOf(field)];
    const TextPool::Id before = std::exchange(id, pool_->keep(value));
    pool_->drop(before);
}

std::string EditableTable::packedNumbers(int shape) const {
    const std::vector<double>& numbers = row(shape).numbers;
    std::string bytes(numberCount_ * sizeof(double), '\0');
    if (!numbers.empty()) std::memcpy(bytes.data(), numbers.data(), numbers.size() * sizeof(double));
    return bytes;
}

std::string EditableTable::packedTexts(int shape) const {
    const std::vector<TextPool::Id>& strings = row(shape).strings;
    std::string bytes;
    for (const TextPool::Id id : strings) bytes.append(pool_->text(id)).push_back('\0');
    bytes.append(textCount_ - strings.size(), '\0');
    return bytes;
}

bool EditableTable::addPacked(int type, std::string_view numbers, std::string_view texts) {
    const auto ends = static_cast<size_t>(std::count(texts.begin(), texts.end(), '\0'));
    const bool closed = texts.empty() || texts.back() == '\0';
    if (numbers.size() != numberCount_ * sizeof(double) || ends != textCount_ || !closed) return false;
    Row& added = rows_[static_cast<size_t>(addShape(type))];
    added.numbers.resize(numberCount_);
    if (!numbers.empty()) std::memcpy(added.numbers.data(), numbers.data(), numbers.size());
    added.strings.reserve(textCount_);
    while (!texts.empty()) {
        const size_t length = texts.find('\0');
        added.strings.push_back(pool_->keep(texts.substr(0, length)));
        texts.remove_prefix(length + 1);
    }
    return true;
}

void EditableTable::markStored() {
    whole_ = fieldsChanged_ = false;
    stored_ = shapes();
    touched_.clear();
}

}  // namespace kshost
