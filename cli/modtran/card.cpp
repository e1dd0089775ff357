#include "modtran/card.hpp"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <optional>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

constexpr std::size_t kColumns = 80;

bool isBlank(const char* text) { return text == nullptr || *text == '\0'; }

/// The record of a card in the library's own form, as bytes: the tables know what stands where.
class Record {
public:
    explicit Record(std::size_t size) : bytes_(size) {}

    template <class Number>
    void set(std::size_t at, Number value) {
        std::memcpy(bytes_.data() + at, &value, sizeof value);
    }
    template <class Number>
    Number get(std::size_t at) const {
        Number value;
        std::memcpy(&value, bytes_.data() + at, sizeof value);
        return value;
    }
    const void* data() const { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

/// What was given for a field, as its columns should show it.
struct Given {
    const CardField* field;
    std::string shown;            // as it was given, for messages
    std::string wanted;           // what the columns should hold, without blanks around it
    std::optional<double> value;  // of a number with decimals, before it is rounded to them
};

std::string textOf(const Json& value) {
    if (value.is_string()) return trimmed(value.get<std::string>());
    return value.is_null() ? "" : value.dump();
}

[[noreturn]] void refuse(const CardField& field, const Json& value, const std::string& path) {
    fail("{} is {}, which {} cannot be: {}.", path, value.dump(), field.name, field.allowed());
}

double realOf(const CardField& field, const Json& value, const std::string& path) {
    if (!value.is_number()) refuse(field, value, path);
    const double number = value.get<double>();
    if (!(number >= field.least && number <= field.most) || std::abs(number) > static_cast<double>(FLT_MAX)) {
        refuse(field, value, path);
    }
    return number;
}

/// T or F, where both are among the texts.
std::string flagText(const CardField& field, const Json& value) {
    int found = 0;
    for (const char* text : field.texts) {
        if (!isBlank(text) && (std::string(text) == "T" || std::string(text) == "F")) ++found;
    }
    return found < 2 ? value.dump() : value.get<bool>() ? "T" : "F";
}

// ---- one field into the record ----

class FieldReader {
public:
    FieldReader(Record& record, const std::string& path) : record_(record), path_(path) {}

    Given read(const CardField& field, const Json& value) const {
        switch (field.kind) {
            case FieldKind::choice:
                return readChoice(field, value);
            case FieldKind::whole:
                return readWhole(field, value);
            case FieldKind::real:
                return readReal(field, value);
            case FieldKind::strength:
                return readStrength(field, value);
            default:
                return readSurface(field, value);
        }
    }

private:
    Given setText(const CardField& field, std::size_t index, const Json& value) const {
        record_.set(field.at, static_cast<int>(index));
        const char* text = field.texts[index];
        return {&field, value.dump(), text == nullptr ? "" : text, {}};
    }

    Given readChoice(const CardField& field, const Json& value) const {
        const std::string text = value.is_boolean() ? flagText(field, value) : textOf(value);
        for (std::size_t i = 0; i < field.texts.size(); ++i) {
            if (text == (isBlank(field.texts[i]) ? "" : field.texts[i])) return setText(field, i, value);
        }
        refuse(field, value, path_);
    }

    Given readWhole(const CardField& field, const Json& value) const {
        if (!value.is_number_integer()) refuse(field, value, path_);
        const double number = value.get<double>();
        if (!(number >= std::max(field.least, static_cast<double>(INT_MIN))) ||
            !(number <= std::min(field.most, static_cast<double>(INT_MAX)))) {
            refuse(field, value, path_);
        }
        record_.set(field.at, static_cast<int>(number));
        return {&field, value.dump(), fmt::format("{}", static_cast<int>(number)), {}};
    }

    Given readReal(const CardField& field, const Json& value) const {
        if (field.mayBeOmitted) record_.set(field.omitAt, value.is_null() ? 1 : 0);
        if (field.mayBeOmitted && value.is_null()) return {&field, "", "", {}};
        const double number = realOf(field, value, path_);
        return setNumber(field, field.at, "", field.decimals, number, value);
    }

    Given setNumber(const CardField& field, std::size_t at, const char* letter, int decimals, double number,
                    const Json& value) const {
        const auto stored = static_cast<float>(number);
        record_.set(at, stored);
        const std::string text = trimmed(fmt::format("{:.{}f}", static_cast<double>(stored), decimals));
        return {&field, value.dump(), letter + text, number};
    }

    /// The letter stands at the left of the columns, the number at their right.
    Given readStrength(const CardField& field, const Json& value) const {
        std::string text = textOf(value);
        if (value.is_boolean() || text.empty()) refuse(field, value, path_);
        constexpr int kNone = 0;
        constexpr int kGrams = 1;
        constexpr int kAtmosphere = 2;
        constexpr int kFactor = 3;
        const int kind = text[0] == 'g' ? kGrams : text[0] == 'a' ? kAtmosphere : kFactor;
        if (kind != kFactor) text.erase(0, 1);
        const auto number = parseNumber(text);
        if (!number || !(*number >= 0) || *number > static_cast<double>(FLT_MAX)) refuse(field, value, path_);
        if (kind == kFactor && std::equal_to<>()(*number, 0.0)) {
            record_.set(field.at, kNone);
            return {&field, value.dump(), "0", {}};
        }
        record_.set(field.at, kind);
        return setNumber(field, field.besideAt,
                         kind == kGrams        ? "g"
                         : kind == kAtmosphere ? "a"
                                               : "",
                         kind == kAtmosphere ? 1 : 3, *number, value);
    }

    /// A negative whole number is a model, any other number an albedo.
    Given readSurface(const CardField& field, const Json& value) const {
        const std::string text = textOf(value);
        for (std::size_t i = 1; i < field.texts.size(); ++i) {
            if (text == field.texts[i]) return setText(field, i, value);
        }
        if (!value.is_number() || !(value.get<double>() >= 0) || value.get<double>() > static_cast<double>(FLT_MAX)) {
            refuse(field, value, path_);
        }
        record_.set(field.at, 0);
        return setNumber(field, field.besideAt, "", field.decimals, value.get<double>(), value);
    }

    Record& record_;
    const std::string& path_;
};

// ---- what became of it ----

std::string withoutBlanks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

/// The number that a text holds behind its letter.
double numberIn(const std::string& text) {
    const std::size_t from = text.find_first_not_of("ga");
    return parseNumber(from == std::string::npos ? "" : text.substr(from)).value_or(std::nan(""));
}

std::string columnsOf(const CardField& field, const std::string& line) {
    return withoutBlanks(
        line.substr(static_cast<std::size_t>(field.first - 1), static_cast<std::size_t>(field.width())));
}

bool isTooWide(const Given& given) { return given.wanted.size() > static_cast<std::size_t>(given.field->width()); }

std::optional<Misfit> rounding(const Given& given) {
    if (!given.value) return std::nullopt;
    const double held = numberIn(given.wanted);
    // Seven digits are what the records hold.
    if (std::abs(held - *given.value) <= 1e-6 * std::abs(*given.value)) return std::nullopt;
    const bool isLost = !(std::abs(held) > 0);
    return Misfit{fmt::format("{} = {} is written as {} ({})", given.field->name, given.shown, given.wanted,
                              given.field->columns()),
                  isLost};
}

std::vector<Misfit> misfitsOf(const std::vector<Given>& given, const std::string& line) {
    std::vector<Misfit> misfits;
    const bool anyTooWide = std::any_of(given.begin(), given.end(), isTooWide);
    for (const Given& one : given) {
        const CardField& field = *one.field;
        const std::string columns = columnsOf(field, line);
        if (isTooWide(one)) {
            misfits.push_back({fmt::format("{} = {} overflows: \"{}\" takes {} columns and has {} ({})", field.name,
                                           one.shown, one.wanted, one.wanted.size(), field.width(), field.columns()),
                               true});
        } else if (!anyTooWide && columns != one.wanted) {
            // What runs over spoils its neighbours, which are not to blame.
            misfits.push_back({fmt::format("{} = {} overflows: its {} would hold \"{}\"", field.name, one.shown,
                                           field.columns(), columns),
                               true});
        } else if (auto rounded = rounding(one)) {
            misfits.push_back(std::move(*rounded));
        }
    }
    return misfits;
}

const CardField* fieldNamed(const CardType& type, const std::string& name) {
    const auto found = std::find_if(type.fields.begin(), type.fields.end(),
                                    [&name](const CardField& field) { return name == field.name; });
    return found == type.fields.end() ? nullptr : &*found;
}

void refuseUnknownKeys(const CardType& type, const Json& fields, const std::string& path) {
    for (const auto& item : fields.items()) {
        if (item.key() == "card" || fieldNamed(type, item.key()) != nullptr) continue;
        std::string names;
        for (const CardField& field : type.fields) names += (names.empty() ? "" : ", ") + std::string(field.name);
        fail("{}.{} is not a field of card {}; those are {}.", path, item.key(), type.name, names);
    }
}

bool mayBeMissing(const CardField& field) {
    return field.mayBeOmitted ||
           (field.kind == FieldKind::choice && std::any_of(field.texts.begin(), field.texts.end(), isBlank));
}

}  // namespace

std::string CardField::columns() const {
    return first == last ? fmt::format("column {}", first) : fmt::format("columns {} to {}", first, last);
}

std::string CardField::allowed() const {
    std::string list;
    for (const char* text : texts) {
        if (kind == FieldKind::surface && text == nullptr) continue;
        list += (list.empty() ? "" : ", ") + (isBlank(text) ? std::string("\"\" (blank)") : std::string(text));
    }
    if (kind == FieldKind::choice) return list;
    if (kind == FieldKind::surface) return "an albedo of at least 0, " + list;
    if (kind == FieldKind::strength) return "0, a factor, or a text such as \"g2.5\" or \"a1.2\"";
    std::string text = kind == FieldKind::whole ? "a whole number" : "a number";
    if (std::isfinite(least) && std::isfinite(most)) {
        text += fmt::format(" from {} to {}", least, most);
    } else if (std::isfinite(least)) {
        text += least > 0 ? " above 0" : fmt::format(" of at least {}", least);
    } else if (std::isfinite(most)) {
        text += fmt::format(" of at most {}", most);
    }
    return mayBeOmitted ? text + ", or null (blank)" : text;
}

MadeCard makeCard(const CardType& type, const Json& fields, const std::string& path) {
    refuseUnknownKeys(type, fields, path);
    Record record(type.recordSize);
    MadeCard card;
    std::vector<Given> given;
    for (const CardField& field : type.fields) {
        const std::string place = fmt::format("{}.{}", path, field.name);
        const bool isGiven = fields.contains(field.name);
        const bool isWritten = field.isWritten == nullptr || field.isWritten(record.data());
        if (!isWritten) {
            if (isGiven) card.unused.push_back(fmt::format("{} is written only where {}", field.name, field.condition));
            continue;
        }
        if (!isGiven && !mayBeMissing(field)) {
            fail("{} is missing ({}): {}.", place, field.meaning, field.allowed());
        }
        const FieldReader reader(record, place);
        given.push_back(reader.read(field, isGiven ? fields[field.name] : Json(nullptr)));
    }
    if (const char* objection = type.objection(record.data())) fail("{}: {}.", path, objection);
    char line[kColumns + 1] = {};
    if (type.write(record.data(), line) != 0) fail("{}: card {} cannot be written (see above).", path, type.name);
    card.line = line;
    std::string columns = card.line;
    columns.resize(kColumns, ' ');
    card.misfits = misfitsOf(given, columns);
    return card;
}

}  // namespace kscli
