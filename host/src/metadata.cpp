// Metadata lists: inside the host as StringList, at the boundary as null-terminated arrays of malloc'ed "KEY=VALUE"
// texts. What a file stores is read and written through its store; the array functions here need no file at all.
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "hostfile.hpp"
#include "kshost.h"
#include "report.hpp"
#include "stringlist.hpp"

namespace kshost {
namespace {

constexpr size_t kDescriptionSize = 65;  // callers' buffers hold 64 characters

/// The value of an entry of exactly this key, or null.
const char* valueOf(const char* entry, std::string_view key) {
    if (std::strncmp(entry, key.data(), key.size()) != 0 || entry[key.size()] != '=') return nullptr;
    return entry + key.size() + 1;
}

size_t countOf(HostStringList list) {
    size_t count = 0;
    while (list != nullptr && list[count] != nullptr) ++count;
    return count;
}

char* copyOf(std::string_view text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

/// A "KEY=VALUE" text, or null when memory is short.
char* newEntry(const char* key, const char* value) {
    const size_t keyLength = std::strlen(key);
    const size_t size = keyLength + 1 + std::strlen(value) + 1;
    char* entry = static_cast<char*>(std::malloc(size));
    if (entry != nullptr) std::snprintf(entry, size, "%s=%s", key, value);
    return entry;
}

/// The list made longer by one entry, which it takes over; the list unchanged when memory is short.
HostStringList appended(HostStringList list, char* entry) {
    const size_t count = countOf(list);
    auto grown =
        entry == nullptr ? nullptr : static_cast<HostStringList>(std::realloc(list, (count + 2) * sizeof(char*)));
    if (grown == nullptr) {
        std::free(entry);
        reportFailure("out of memory for a metadata entry");
        return list;
    }
    grown[count] = entry;
    grown[count + 1] = nullptr;
    return grown;
}

/// Drops the key's entries from the one at `first` on.
void dropEntries(HostStringList list, std::string_view key, size_t first) {
    size_t kept = first;
    for (size_t i = first; list[i] != nullptr; ++i) {
        if (valueOf(list[i], key) != nullptr) {
            std::free(list[i]);
        } else {
            list[kept++] = list[i];
        }
    }
    list[kept] = nullptr;
}

bool isChannel(const HostFile& file, int channel) {
    return file.raster != nullptr && channel >= 1 && channel <= file.raster->facts().channels;
}

/// A segment is addressed by its number at the level of segments or at that of its own type.
bool isSegment(const HostFile& file, int level, int number) {
    const Segments all = file.store->segments();
    const auto found = all.find(number);
    return found != all.end() && (level == kSegmentLevel || level == found->second.type);
}

std::string ofType(int level) { return level == kSegmentLevel ? "" : " of type " + std::to_string(level); }

/// True when the file has what a level and number name; else a report says what is wrong.
bool hasLevel(const HostFile& file, int level, int number, const char* caller) {
    if (level == kFileLevel) return true;
    if (level == kChannelLevel && isChannel(file, number)) return true;
    if (level > kChannelLevel && isSegment(file, level, number)) return true;
    const std::string place = level == kChannelLevel  ? "has no channel " + std::to_string(number)
                              : level > kChannelLevel ? "has no segment " + std::to_string(number) + ofType(level)
                                                      : "keeps no metadata of level " + std::to_string(level);
    reportFailure(std::string(caller) + ": " + file.name + " " + place + ".");
    return false;
}

// How the store numbers what callers address.
int normalLevel(int level) { return std::min<int>(level, kSegmentLevel); }
int normalNumber(int level, int number) { return level == kFileLevel ? -1 : number; }

/// Cuts a text to what fits into a caller's buffer, never within a UTF-8 character.
std::string fitting(std::string text, size_t size) {
    if (text.size() < size) return text;
    size_t length = size - 1;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80) --length;
    text.resize(length);
    return text;
}

bool channelDescription(HostFile* fp, int mode, int channel, char* text) {
    constexpr const char* kCaller = "GDBChanDescIO ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || !hasLevel(*file, kChannelLevel, channel, kCaller)) return false;
    if (text == nullptr) {
        reportFailure(std::string(kCaller) + ": no text given.");
        return false;
    }
    if (mode == 0) {
        const std::string description = fitting(file->store->channelDescription(channel), kDescriptionSize);
        std::memcpy(text, description.c_str(), description.size() + 1);
        return true;
    }
    if (!mayWrite(*file, kCaller)) return false;
    file->store->setChannelDescription(channel, text);
    return true;
}

bool metadata(HostFile* fp, int direction, int level, int number, HostStringList given, HostStringList* result) {
    constexpr const char* kCaller = "GDBMetaDataIO ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || !hasLevel(*file, level, number, kCaller)) return false;
    if (direction == 0) {
        *result = file->store->list(normalLevel(level), normalNumber(level, number)).toBoundary();
        return true;
    }
    if (!mayWrite(*file, kCaller)) return false;
    file->store->replaceList(normalLevel(level), normalNumber(level, number), StringList::fromBoundary(given));
    return true;
}

bool fetch(HostFile* fp, int level, int number, const char* key, const char** value) {
    constexpr const char* kCaller = "GDBFetchMetaDataEntry ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || !hasLevel(*file, level, number, kCaller)) return false;
    if (key == nullptr) return true;
    const char* found = file->store->list(normalLevel(level), normalNumber(level, number)).find(key);
    *value = found != nullptr ? file->store->lend(found) : nullptr;
    return true;
}

}  // namespace

StringList StringList::fromBoundary(HostStringList list) {
    return StringList(list == nullptr ? std::vector<Entry>() : std::vector<Entry>(list, list + countOf(list)));
}

HostStringList StringList::toBoundary() const {
    if (entries_.empty()) return nullptr;
    auto list = static_cast<HostStringList>(std::calloc(entries_.size() + 1, sizeof(char*)));
    if (list == nullptr) throw std::bad_alloc();
    for (size_t i = 0; i < entries_.size(); ++i) {
        list[i] = copyOf(entries_[i]);
        if (list[i] == nullptr) {
            DestroyStringList(list);
            throw std::bad_alloc();
        }
    }
    return list;
}

const char* StringList::find(std::string_view key) const {
    for (const Entry& entry : entries_) {
        if (const char* value = valueOf(entry.c_str(), key)) return value;
    }
    return nullptr;
}

void StringList::set(std::string_view key, std::string_view value) {
    Entry entry = std::string(key) + "=" + std::string(value);
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (valueOf(entries_[i].c_str(), key) == nullptr) continue;
        for (size_t j = entries_.size() - 1; j > i; --j) {
            if (valueOf(entries_[j].c_str(), key) != nullptr) {
                entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(j));
            }
        }
        entries_[i] = std::move(entry);
        return;
    }
    entries_.push_back(std::move(entry));
}

void StringList::remove(std::string_view key) {
    for (size_t i = entries_.size(); i-- > 0;) {
        if (valueOf(entries_[i].c_str(), key) != nullptr) {
            entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

}  // namespace kshost

const char* FetchAuxEntry(HostStringList pList, const char* szKey) {
    if (pList == nullptr || szKey == nullptr) return nullptr;
    for (size_t i = 0; pList[i] != nullptr; ++i) {
        if (const char* value = kshost::valueOf(pList[i], szKey)) return value;
    }
    return nullptr;
}

HostStringList SetAuxEntry(HostStringList pList, const char* szKey, const char* szValue) {
    if (szKey == nullptr || szValue == nullptr) return pList;
    return kshost::guarded("SetAuxEntry ()", pList, [=] {
        char* entry = kshost::newEntry(szKey, szValue);
        for (size_t i = 0; entry != nullptr && pList != nullptr && pList[i] != nullptr; ++i) {
            if (kshost::valueOf(pList[i], szKey) == nullptr) continue;
            std::free(pList[i]);
            pList[i] = entry;
            kshost::dropEntries(pList, szKey, i + 1);
            return pList;
        }
        return kshost::appended(pList, entry);
    });
}

HostStringList DeleteAuxEntries(HostStringList pList, const char* szKey, int /*n0*/, int /*n1*/) {
    if (pList != nullptr && szKey != nullptr) kshost::dropEntries(pList, szKey, 0);
    return pList;
}

void DestroyStringList(HostStringList pList) {
    for (size_t i = 0; pList != nullptr && pList[i] != nullptr; ++i) std::free(pList[i]);
    std::free(pList);
}

int CountStringList(HostStringList pList) { return static_cast<int>(kshost::countOf(pList)); }

HostStringList TokenizeDelim(const char* szText, const char* szDelim) {
    if (szText == nullptr || szDelim == nullptr) return nullptr;
    return kshost::guarded<HostStringList>("TokenizeDelim ()", nullptr, [=] {
        std::vector<std::string> tokens;
        for (const char* at = szText + std::strspn(szText, szDelim); *at != '\0'; at += std::strspn(at, szDelim)) {
            const size_t length = std::strcspn(at, szDelim);
            tokens.emplace_back(at, length);
            at += length;
        }
        return kshost::StringList(std::move(tokens)).toBoundary();
    });
}

const char* MkName(const char* szFormat, ...) {
    // Long enough for keys made of several names in one expression.
    constexpr size_t kTexts = 16;
    thread_local std::array<std::string, kTexts> texts;
    thread_local size_t next = 0;
    if (szFormat == nullptr) return nullptr;
    std::va_list arguments;
    va_start(arguments, szFormat);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, szFormat, arguments);
    const char* name = kshost::guarded<const char*>("MkName ()", nullptr, [&]() -> const char* {
        if (length < 0) return nullptr;
        std::string& text = texts[next];
        next = (next + 1) % kTexts;
        // A text made anew, because an argument may be one of the earlier names.
        std::string made(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(made.data(), made.size(), szFormat, again);
        made.pop_back();
        text = std::move(made);
        return text.c_str();
    });
    va_end(again);
    va_end(arguments);
    return name;
}

char* _HString(const char* szText) { return szText == nullptr ? nullptr : kshost::copyOf(szText); }

HostStringList GDBMetaDataIO(HostFile* fp, int nDirection, int nLevel, int nNumber, HostStringList pList) {
    HostStringList list = nullptr;
    const bool done = kshost::guarded("GDBMetaDataIO ()", false,
                                      [&] { return kshost::metadata(fp, nDirection, nLevel, nNumber, pList, &list); });
    if (!done) kshost::abandonIfTrapped();
    return list;
}

const char* GDBFetchMetaDataEntry(HostFile* fp, int nLevel, int nNumber, const char* szKey) {
    const char* value = nullptr;
    const bool done = kshost::guarded("GDBFetchMetaDataEntry ()", false,
                                      [&] { return kshost::fetch(fp, nLevel, nNumber, szKey, &value); });
    if (!done) kshost::abandonIfTrapped();
    return value;
}

void GDBWriteHistory(HostFile* fp, int /*nLevel*/, int /*nChan*/, const char* szText) {
    const bool done = kshost::guarded("GDBWriteHistory ()", false, [=] {
        constexpr const char* kCaller = "GDBWriteHistory ()";
        HostFile* file = kshost::live(fp, kCaller);
        if (file == nullptr || !kshost::mayWrite(*file, kCaller)) return false;
        if (szText != nullptr) file->store->addHistory(szText);
        return true;
    });
    if (!done) kshost::abandonIfTrapped();
}

int GDBChanDescIO(HostFile* fp, int nMode, int nChan, char* szText) {
    const bool done = kshost::guarded("GDBChanDescIO ()", false,
                                      [=] { return kshost::channelDescription(fp, nMode, nChan, szText); });
    if (!done) kshost::abandonIfTrapped();
    return done ? 1 : 0;
}
