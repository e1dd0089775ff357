// The fake host's metadata and string lists. A list that is set or deleted from always moves, so that a caller who
// keeps the old pointer is caught.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fakehost.hpp"
#include "print.hpp"

namespace kit {
namespace {

char* copyOf(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

HostStringList newList(const std::vector<std::string>& entries) {
    if (entries.empty()) return nullptr;
    char** list = static_cast<char**>(std::malloc((entries.size() + 1) * sizeof(char*)));
    for (std::size_t i = 0; i < entries.size(); ++i) list[i] = copyOf(entries[i]);
    list[entries.size()] = nullptr;
    host().trackList(list);
    return list;
}

std::vector<std::string> entriesOf(HostStringList list) {
    std::vector<std::string> entries;
    for (char** entry = list; entry != nullptr && *entry != nullptr; ++entry) entries.emplace_back(*entry);
    return entries;
}

void destroy(HostStringList list) {
    if (list == nullptr) return;
    if (!host().forgetList(list)) {
        host().misuse.emplace_back("a list that is not live");
        return;
    }
    for (char** entry = list; *entry != nullptr; ++entry) std::free(*entry);
    std::free(list);
}

bool hasKey(const std::string& entry, const std::string& key) {
    return entry.size() > key.size() && entry[key.size()] == '=' && entry.compare(0, key.size(), key) == 0;
}

void setEntry(std::vector<std::string>& entries, const std::string& key, const std::string& value) {
    std::vector<std::string> kept;
    bool placed = false;
    for (const std::string& entry : entries) {
        if (!hasKey(entry, key)) {
            kept.push_back(entry);
        } else if (!placed) {
            kept.push_back(key + "=" + value);
            placed = true;
        }
    }
    if (!placed) kept.push_back(key + "=" + value);
    entries = kept;
}

HostStringList deleted(HostStringList list, const std::string& key) {
    std::vector<std::string> kept;
    for (const std::string& entry : entriesOf(list)) {
        if (!hasKey(entry, key)) kept.push_back(entry);
    }
    destroy(list);
    return newList(kept);
}

HostStringList withEntry(HostStringList list, const char* key, const char* value) {
    std::vector<std::string> entries = entriesOf(list);
    setEntry(entries, key, value);
    destroy(list);
    return newList(entries);
}

HostStringList tokens(const std::string& text, const char* delimiters) {
    std::vector<std::string> found;
    std::size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const std::size_t end = text.find_first_of(delimiters, start);
        found.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
    return newList(found);
}

bool checkLive(HostStringList list, const char* caller) {
    if (host().isLiveList(list)) return true;
    host().misuse.push_back(std::string(caller) + " of a list that is not live");
    return false;
}

/// What becomes of a list on whose change the host gives up: nobody has it any more.
HostStringList givenUp(HostStringList list) {
    destroy(list);
    return failing<HostStringList>(nullptr);
}

/// Where a list is kept: that of a segment under the segment's type, by which it may also be addressed.
std::pair<int, int> placeOf(const FakeFile& file, int level, int number) {
    constexpr int kSegmentLevel = 3;
    const auto segment = file.segments.find(number);
    return {level == kSegmentLevel && segment != file.segments.end() ? segment->second.type : level, number};
}

HostStringList stored(const FakeFile& file, int level, int number) {
    const auto found = file.lists.find(placeOf(file, level, number));
    return found == file.lists.end() ? nullptr : newList(found->second);
}

const char* handOut(FakeFile& file, const std::string& text) { return file.handedOut.emplace_back(text).c_str(); }

const char* fetch(FakeFile& file, int level, int number, const std::string& key) {
    const auto list = file.lists.find(placeOf(file, level, number));
    if (list == file.lists.end()) return nullptr;
    for (const std::string& entry : list->second) {
        if (hasKey(entry, key)) return handOut(file, entry.substr(key.size() + 1));
    }
    return nullptr;
}

}  // namespace
}  // namespace kit

using namespace kit;

extern "C" {

HostStringList GDBMetaDataIO(HostFile* fp, int nDirection, int nLevel, int nNumber, HostStringList pList) {
    if (!host().enter("GDBMetaDataIO", arguments(fp, nDirection, nLevel, nNumber, pList))) {
        return failing<HostStringList>(nullptr);
    }
    FakeFile* file = host().fileOf(fp, "GDBMetaDataIO");
    if (file == nullptr || !checkLive(pList, "GDBMetaDataIO")) return failing<HostStringList>(nullptr);
    if (nDirection == 0) return stored(*file, nLevel, nNumber);
    if (!fp->writable) host().misuse.emplace_back("GDBMetaDataIO writes to a file that is open for reading");
    file->lists[placeOf(*file, nLevel, nNumber)] = entriesOf(pList);
    return nullptr;
}

const char* GDBFetchMetaDataEntry(HostFile* fp, int nLevel, int nNumber, const char* szKey) {
    if (!host().enter("GDBFetchMetaDataEntry", arguments(fp, nLevel, nNumber, szKey)))
        return failing<const char*>(nullptr);
    FakeFile* file = host().fileOf(fp, "GDBFetchMetaDataEntry");
    return file == nullptr ? nullptr : fetch(*file, nLevel, nNumber, szKey);
}

const char* FetchAuxEntry(HostStringList pList, const char* szKey) {
    if (!host().enter("FetchAuxEntry", arguments(pList, szKey))) return failing<const char*>(nullptr);
    if (!checkLive(pList, "FetchAuxEntry")) return nullptr;
    const std::size_t length = std::strlen(szKey);
    for (char** entry = pList; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, szKey, length) == 0 && (*entry)[length] == '=') return *entry + length + 1;
    }
    return nullptr;
}

HostStringList SetAuxEntry(HostStringList pList, const char* szKey, const char* szValue) {
    if (!host().enter("SetAuxEntry", arguments(pList, szKey, szValue))) return givenUp(pList);
    return checkLive(pList, "SetAuxEntry") ? withEntry(pList, szKey, szValue) : nullptr;
}

HostStringList DeleteAuxEntries(HostStringList pList, const char* szKey, int n0, int n1) {
    if (!host().enter("DeleteAuxEntries", arguments(pList, szKey, n0, n1))) return givenUp(pList);
    return checkLive(pList, "DeleteAuxEntries") ? deleted(pList, szKey) : nullptr;
}

void DestroyStringList(HostStringList pList) {
    const bool proceed = host().enter("DestroyStringList", arguments(pList));
    destroy(pList);
    if (!proceed) abandonIfTrapped();
}

int CountStringList(HostStringList pList) {
    if (!host().enter("CountStringList", arguments(pList))) return failing(0);
    return checkLive(pList, "CountStringList") ? static_cast<int>(entriesOf(pList).size()) : 0;
}

HostStringList TokenizeDelim(const char* szText, const char* szDelim) {
    if (!host().enter("TokenizeDelim", arguments(szText, szDelim))) return failing<HostStringList>(nullptr);
    return tokens(szText, szDelim);
}

const char* MkName(const char* szFormat, ...) {
    constexpr int kTexts = 8;
    static char texts[kTexts][512];
    static int next = 0;
    char* text = texts[next];
    next = (next + 1) % kTexts;
    va_list values;
    va_start(values, szFormat);
    std::vsnprintf(text, sizeof texts[0], szFormat, values);
    va_end(values);
    if (!host().enter("MkName", arguments(static_cast<const char*>(text)))) return failing<const char*>(nullptr);
    return text;
}

char* _HString(const char* szText) {
    if (!host().enter("_HString", arguments(szText)) || szText == nullptr) return nullptr;
    return copyOf(szText);
}

}  // extern "C"
