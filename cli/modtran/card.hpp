// The cards of a MODTRAN4 input file as tables of fields: what each is called, in which columns it stands, and which
// values it may have. Values are given as they stand on the card, not as the library's records number them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "app/output.hpp"

namespace kscli {

enum class FieldKind {
    choice,    // one of a few texts
    whole,     // a whole number
    real,      // a number
    strength,  // of an absorber: 0, a factor, or a text such as "g2.5" or "a1.2"
    surface    // an albedo, or the name of a model
};

struct CardField {
    const char* name = nullptr;  // the code's own keyword
    const char* meaning = nullptr;
    FieldKind kind = FieldKind::choice;
    int first = 0;  // columns, from 1
    int last = 0;
    std::size_t at = 0;              // place in the record of the number, or of the one that says which text
    std::size_t besideAt = 0;        // of the number that goes with a strength or surface
    std::vector<const char*> texts;  // in the order of the record's numbers; null: blank columns
    std::size_t omitAt = 0;          // of the flag that leaves a number out
    bool mayBeOmitted = false;
    int decimals = 0;
    double least = 0;
    double most = 0;
    bool (*isWritten)(const void* record) = nullptr;  // null: always
    const char* condition = nullptr;                  // the same in words

    int width() const { return last - first + 1; }
    /// "column 5", "columns 30 to 39".
    std::string columns() const;
    /// What may be given, for messages and lists.
    std::string allowed() const;
};

struct CardType {
    const char* name;
    std::size_t recordSize;
    int (*write)(const void* record, char* line);
    const char* (*objection)(const void* record);  // null, or what is wrong although each field is right
    std::vector<CardField> fields;
};

/// In the order in which the cards stand in a file.
const std::vector<CardType>& cardTypes();

/// A value that its columns do not hold as it was given.
struct Misfit {
    std::string text;
    bool isWrong = false;  // else it is rounded only
};

/// One card, made of the fields of a JSON object.
struct MadeCard {
    std::string line;
    std::vector<std::string> unused;  // fields that were given but are not written, and why
    std::vector<Misfit> misfits;
};
/// Throws a Failure that names the key, as in cards[2].VIS, whose value cannot be used.
MadeCard makeCard(const CardType& type, const Json& fields, const std::string& path);

}  // namespace kscli
