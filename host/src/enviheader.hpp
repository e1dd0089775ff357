// ENVI text headers: reading them in all their real spellings, and writing them for the images that the host creates.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "facts.hpp"
#include "stringlist.hpp"

namespace kshost {

/// A header as read: keys in lower case with single blanks, values raw (braces and all), in file order; of duplicate
/// keys the last one counts. Comments are dropped. Text comes back as UTF-8 whatever it was.
struct EnviHeader {
    Items entries;
    std::vector<std::string> remarks;  // duplicates, lines without a key, a list that is never closed
    const std::string* find(const std::string& key) const;
};
EnviHeader parseEnviHeader(const std::string& bytes);

/// The elements of a "{a, b, c}" value (or the single value), trimmed.
std::vector<std::string> enviListItems(const std::string& value);

/// A header list of texts, made unable to disturb their neighbours: commas and braces become others.
std::string enviListText(const std::vector<std::string>& texts);
/// A text as such a list holds it.
std::string enviListItem(std::string_view text);

/// A whole header for an image that the host created, from its structure and its lists.
std::string composeEnviHeader(const RasterFacts& facts, const StringList& fileList,
                              const std::vector<StringList>& channelLists, const Georeference& georeference);

}  // namespace kshost
