#include "image/entries.hpp"

namespace kscli {

std::vector<std::pair<std::string, std::string>> Entries::items() const {
    std::vector<std::pair<std::string, std::string>> items;
    for (const std::string& entry : texts()) {
        const std::size_t equals = entry.find('=');
        if (equals != std::string::npos) items.emplace_back(entry.substr(0, equals), entry.substr(equals + 1));
    }
    return items;
}

std::vector<std::string> Entries::texts() const {
    std::vector<std::string> texts;
    for (char** text = list_; text != nullptr && *text != nullptr; ++text) texts.emplace_back(*text);
    return texts;
}

}  // namespace kscli
