// A MODTRAN4 input file as JSON: a list of cards, each an object of fields or, for those that are not made here, a line
// as it is.
#pragma once

#include <string>
#include <vector>

namespace kscli {

struct DeckLine {
    std::string card;  // its name; empty for a line as it is
    std::string text;
    std::string path;                   // in the JSON, such as cards[2]
    std::vector<std::string> overflow;  // what the columns do not hold
    std::vector<std::string> remarks;
};

/// Throws a Failure that says where the text is wrong.
std::vector<DeckLine> makeDeck(const std::string& json, const std::string& file);

/// A deck with every field of every card, to start from.
std::string exampleDeck();

/// Every field: its columns, its values and what it is.
std::string fieldTable();

/// The lines under a ruler of their columns, each behind the name of its card.
std::string withRuler(const std::vector<DeckLine>& lines);

}  // namespace kscli
