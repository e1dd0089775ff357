#include "modtran/deck.hpp"

#include <algorithm>
#include <set>

#include "app/report.hpp"
#include "modtran/card.hpp"

namespace kscli {
namespace {

// Card 5 asks for a run that differs from the one before, and the cards begin again.
constexpr const char* kLastOfRun = "5";

/// The text without the name that the parser puts in front of its messages.
std::string reasonOf(const Json::exception& error) {
    const std::string text = error.what();
    const std::size_t end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

/// A key that comes twice is a slip that would otherwise go unseen: the last one would win.
Json parseWithoutDuplicates(const std::string& text) {
    std::vector<std::set<std::string>> keys;
    return Json::parse(text, [&keys](int, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) keys.emplace_back();
        if (event == Json::parse_event_t::object_end) keys.pop_back();
        if (event == Json::parse_event_t::key && !keys.back().insert(parsed.get<std::string>()).second) {
            fail("the key {} comes twice in the same object; leave one out.", parsed.dump());
        }
        return true;
    });
}

std::string cardNames() {
    std::string names;
    for (const CardType& type : cardTypes()) names += (names.empty() ? "" : ", ") + std::string(type.name);
    return names;
}

const CardType& typeOf(const Json& card, const std::string& path) {
    if (!card.contains("card")) fail("{} has no key \"card\"; it says which one it is: {}.", path, cardNames());
    const Json& value = card["card"];
    const std::string name = value.is_string() ? value.get<std::string>() : value.dump();
    for (const CardType& type : cardTypes()) {
        if (name == type.name) return type;
    }
    fail("{}.card is {}; it must be one of {}. Other cards can be given as texts, which are written as they are.", path,
         value.dump(), cardNames());
}

DeckLine lineAsItIs(const Json& card, const std::string& path) {
    DeckLine line;
    line.path = path;
    line.text = card.get<std::string>();
    if (line.text.find_first_of("\n\r") != std::string::npos) {
        fail("{} holds a line end; give one text a line.", path);
    }
    return line;
}

DeckLine lineOf(const Json& card, const std::string& path) {
    if (card.is_string()) return lineAsItIs(card, path);
    if (!card.is_object()) fail("{} is {}; it must be an object, or a text to write as it is.", path, card.dump());
    const CardType& type = typeOf(card, path);
    const MadeCard made = makeCard(type, card, path);
    DeckLine line;
    line.card = type.name;
    line.text = made.line;
    line.path = path;
    for (const std::string& unused : made.unused) line.remarks.push_back(fmt::format("{}: {}.", path, unused));
    for (const Misfit& misfit : made.misfits) {
        (misfit.isWrong ? line.overflow : line.remarks).push_back(fmt::format("{}: {}.", path, misfit.text));
    }
    return line;
}

int rankOf(const std::string& card) {
    int rank = 0;
    for (const CardType& type : cardTypes()) {
        if (card == type.name) return rank;
        ++rank;
    }
    return -1;
}

void requireOrder(const std::vector<DeckLine>& lines) {
    const DeckLine* before = nullptr;
    for (const DeckLine& line : lines) {
        if (line.card.empty()) continue;
        if (before != nullptr && rankOf(line.card) <= rankOf(before->card)) {
            fail("{}: card {} cannot follow card {}; the order is {}.", line.path, line.card, before->card,
                 cardNames());
        }
        before = line.card == kLastOfRun ? nullptr : &line;
    }
}

Json cardsOf(const Json& deck) {
    if (!deck.is_object()) fail("the text is no object; it must be {{\"cards\": [...]}}.");
    for (const auto& item : deck.items()) {
        if (item.key() != "cards") fail("{} is not known; the only key beside the cards is \"cards\".", item.key());
    }
    if (!deck.contains("cards") || !deck["cards"].is_array() || deck["cards"].empty()) {
        fail("\"cards\" must be a list of cards; 'ks modtran cards --example' prints one.");
    }
    return deck["cards"];
}

constexpr const char* kExample = R"({
  "cards": [
    {"card": "1", "MODTRN": "C", "SPEED": "M", "MODEL": 2, "ITYPE": 2, "IEMSCT": 2, "IMULT": 1,
     "M1": 0, "M2": 0, "M3": 0, "M4": 0, "M5": 0, "M6": 0, "MDEF": 1, "IM": 0, "NOPRNT": 0,
     "TPTEMP": 295.5, "SURREF": 0.25},
    {"card": "1A", "DIS": "T", "DISAZM": "T", "NSTR": 8, "LSUN": "T", "ISUN": 5, "CO2MX": 365,
     "H2OSTR": "g2.5", "O3STR": 0, "LSUNFL": "", "LBMNAM": "", "LFLTNM": "F", "H2OAER": "F",
     "SOLCON": 0},
    {"card": "2", "APLUS": "", "IHAZE": 1, "CNOVAM": "", "ISEASN": 0, "ARUSS": "", "IVULCN": 1,
     "ICSTL": 3, "ICLD": 0, "IVSA": 0, "VIS": 23, "WSS": 0, "WHH": 0, "RAINRT": 0, "GNDALT": 0.1},
    {"card": "3", "H1": 20, "H2": 0.1, "ANGLE": 180, "RANGE": null, "BETA": null, "RO": null,
     "LENN": 0, "PHI": null},
    {"card": "3A1", "IPARM": 2, "IPH": 2, "IDAY": 172, "SOURC": 0},
    {"card": "3A2", "PARM1": 135, "PARM2": 40, "PARM3": null, "PARM4": null, "TIME": null,
     "PSIPO": null, "ANGLEM": null, "G": null},
    {"card": "4", "V1": 400, "V2": 2500, "DV": 1, "FWHM": 10, "YFLAG": "R", "XFLAG": "N",
     "DLIMIT": "", "FLAG1": "N", "FLAG2": "G", "FLAG3": "A", "FLAG4": "", "FLAG5": "", "FLAG6": "",
     "FLAG7": "", "MLFLX": 0},
    {"card": "5", "IRPT": 0}
  ]
}
)";

constexpr std::size_t kNameWidth = 5;
constexpr int kRulerColumns = 80;

}  // namespace

std::vector<DeckLine> makeDeck(const std::string& json, const std::string& file) {
    try {
        std::vector<DeckLine> lines;
        const Json cards = cardsOf(parseWithoutDuplicates(json));
        for (std::size_t i = 0; i < cards.size(); ++i) lines.push_back(lineOf(cards[i], fmt::format("cards[{}]", i)));
        requireOrder(lines);
        return lines;
    } catch (const Json::exception& error) {
        fail("{}: {}", file, reasonOf(error));
    } catch (const Failure& failure) {
        fail("{}: {}", file, failure.what());
    }
}

std::string exampleDeck() { return kExample; }

std::string fieldTable() {
    std::string text;
    for (const CardType& type : cardTypes()) {
        text += fmt::format("{}card {}\n", text.empty() ? "" : "\n", type.name);
        for (const CardField& field : type.fields) {
            const std::string columns = field.first == field.last ? fmt::format("{}", field.first)
                                                                  : fmt::format("{}-{}", field.first, field.last);
            text += fmt::format("  {:<7} {:<6} {}\n{:17}{}\n", field.name, columns, field.meaning, "", field.allowed());
            if (field.condition != nullptr) text += fmt::format("{:17}only where {}\n", "", field.condition);
        }
    }
    return text;
}

std::string withRuler(const std::vector<DeckLine>& lines) {
    std::string tens(kNameWidth, ' ');
    std::string ones(kNameWidth, ' ');
    for (int column = 1; column <= kRulerColumns; ++column) {
        tens += column % 10 == 0 ? fmt::format("{}", column / 10) : " ";
        ones += fmt::format("{}", column % 10);
    }
    std::string text = tens + "\n" + ones + "\n";
    for (const DeckLine& line : lines) text += fmt::format("{:<{}}{}\n", line.card, kNameWidth, line.text);
    return text;
}

}  // namespace kscli
