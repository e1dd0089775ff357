// The table in a file: its segment, its shape in the segment's metadata, and transfers of elements. Every call of the
// host that can abandon its caller runs under a trap; what is released afterwards belongs to the frames outside of it.
#include "kslut/storage.hpp"

#include <kslib/kslutvec.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "kshost.h"
#include "support/heap.hpp"
#include "support/hosttrap.hpp"
#include "support/number.hpp"
#include "support/tablestatus.hpp"

using namespace ks;

namespace {

constexpr int kTableSegment = 180;
constexpr int kRead = 0;
constexpr int kWrite = 1;
constexpr int kDecimals = 5;

/// A list of texts of the host, destroyed with its scope. While the host works on it nobody owns it here, so that a
/// list on which the host gave up is not touched again.
class TextList {
public:
    TextList() = default;
    TextList(const TextList&) = delete;
    TextList& operator=(const TextList&) = delete;
    ~TextList() { reset(); }

    void reset(HostStringList list = nullptr) {
        if (list_ != nullptr) DestroyStringList(std::exchange(list_, nullptr));
        list_ = list;
    }
    HostStringList get() const { return list_; }
    const char* find(const char* key) const { return FetchAuxEntry(list_, key); }
    void set(const char* key, const char* value) { list_ = SetAuxEntry(std::exchange(list_, nullptr), key, value); }
    void remove(const char* key) { list_ = DeleteAuxEntries(std::exchange(list_, nullptr), key, 0, 1); }

private:
    HostStringList list_ = nullptr;
};

/// The key of one dimension: "KSLUTSize_3".
struct Key {
    Key(const char* base, int d) { std::snprintf(text, sizeof text, "%s_%d", base, d); }
    char text[256];
};

// ---- writing ----

/// Room for the longest coordinate text of any dimension.
std::int64_t coordinateRoom(const KSLUT& table) {
    std::int64_t room = 0;
    for (int d = 0; d < table.nDimensions; ++d) {
        if (table.papafCoords[d] == nullptr) continue;
        std::int64_t length = table.panSizes[d];  // commas and the end
        for (int i = 0; i < table.panSizes[d]; ++i) {
            const NumberText number(static_cast<double>(table.papafCoords[d][i]), kDecimals);
            length += static_cast<std::int64_t>(std::strlen(number.text()));
        }
        room = std::max(room, length);
    }
    return room;
}

/// The coordinates of a dimension, joined by commas.
void writeCoordinates(const float* coords, int count, char* text) {
    for (int i = 0; i < count; ++i) {
        if (i > 0) *text++ = ',';
        const NumberText number(static_cast<double>(coords[i]), kDecimals);
        const std::size_t length = std::strlen(number.text());
        std::memcpy(text, number.text(), length);
        text += length;
    }
    *text = '\0';
}

/// Sets all entries of the shape; `text` has room for any dimension's coordinates.
void setShape(const KSLUT& table, TextList& list, char* text) {
    list.set("KSLUTDimensions", MkName("%d", table.nDimensions));
    list.set("KSLUTElementSize", MkName("%d", table.nElementSize));
    for (int d = 0; d < table.nDimensions; ++d) {
        list.set(Key("KSLUTSize", d).text, MkName("%d", table.panSizes[d]));
    }
    for (int d = 0; d < table.nDimensions; ++d) {
        if (table.papszLabels[d] != nullptr) list.set(Key("KSLUTLabel", d).text, table.papszLabels[d]);
    }
    for (int d = 0; d < table.nDimensions; ++d) {
        if (table.papafCoords[d] == nullptr) continue;
        writeCoordinates(table.papafCoords[d], table.panSizes[d], text);
        list.set(Key("KSLUTCoords", d).text, text);
    }
}

// ---- reading ----

int readSizes(KSLUT* table, const TextList& list) {
    const char* common = list.find("KSLUTSize");
    for (int d = 0; d < table->nDimensions; ++d) {
        const char* text = common != nullptr ? common : list.find(Key("KSLUTSize", d).text);
        if (text == nullptr || KSLUTSetSize(table, d, parseInt(text)) != kTableOk) return kTableFailed;
    }
    return kTableOk;
}

int readLabels(KSLUT* table, const TextList& list) {
    for (int d = 0; d < table->nDimensions; ++d) {
        const char* text = list.find(Key("KSLUTLabel", d).text);
        if (text != nullptr && KSLUTSetLabel(table, d, text) != kTableOk) return kTableFailed;
    }
    return kTableOk;
}

int readCoordinates(KSLUT* table, const TextList& list, TextList& pieces) {
    for (int d = 0; d < table->nDimensions; ++d) {
        const char* text = list.find(Key("KSLUTCoords", d).text);
        if (text == nullptr) continue;
        pieces.reset(TokenizeDelim(text, ","));
        const int count = CountStringList(pieces.get());
        if (count != table->panSizes[d]) return kTableFailed;
        for (int i = 0; i < count; ++i) {
            const float coord = static_cast<float>(parseReal(pieces.get()[i]));
            if (KSLUTSetCoord(table, d, i, coord) != kTableOk) return kTableFailed;
        }
        pieces.reset();
    }
    return kTableOk;
}

/// Everything but the number of dimensions, which decides over the record's life.
int readShape(KSLUT* table, const TextList& list, TextList& pieces) {
    const char* elementSize = list.find("KSLUTElementSize");
    return tableStatus(elementSize != nullptr && KSLUTSetElementSize(table, parseInt(elementSize)) == kTableOk &&
                       readSizes(table, list) == kTableOk && readLabels(table, list) == kTableOk &&
                       readCoordinates(table, list, pieces) == kTableOk);
}

Attributes readFromList(KSLUT* table, const TextList& list, TextList& pieces) {
    const char* text = list.get() == nullptr ? nullptr : list.find("KSLUTDimensions");
    const int dimensions = text == nullptr ? 0 : parseInt(text);
    if (dimensions < 1) return Attributes::failed;
    if (KSLUTSetDimensions(table, dimensions) != kTableOk) return Attributes::released;
    return readShape(table, list, pieces) == kTableOk ? Attributes::read : Attributes::failed;
}

// ---- transfers ----

bool hasDimensions(const KSLUTVector* vector, int dimensions) {
    return vector != nullptr && vector->nDimensions == dimensions && vector->panValues != nullptr;
}

bool isOptional(const KSLUTVector* vector, int dimensions) {
    return vector == nullptr || hasDimensions(vector, dimensions);
}

const std::int64_t* valuesOf(const KSLUTVector* vector) { return vector == nullptr ? nullptr : vector->panValues; }

}  // namespace

Attributes ks::readAttributes(KSLUT* table) {
    if (KSLUTIsFileInfoValid(table) != kTableOk) return Attributes::failed;
    TextList list;
    TextList pieces;
    return underHostTrap(Attributes::failed, [&list, &pieces, table] {
        list.reset(GDBMetaDataIO(table->fp, kRead, kTableSegment, table->nSegment, nullptr));
        const Attributes attributes = readFromList(table, list, pieces);
        pieces.reset();
        list.reset();
        return attributes;
    });
}

int KSLUTSetFileInfo(KSLUT* pLUT, HostFile* fp, int nSegment) {
    if (pLUT == nullptr) return kTableFailed;
    if (KSLUTIsFileInfoValid(pLUT) == kTableOk) GDBClose(pLUT->fp);
    pLUT->fp = fp;
    pLUT->nSegment = nSegment;
    if (fp != nullptr && KSLUTIsFileInfoValid(pLUT) != kTableOk) {
        pLUT->fp = nullptr;
        pLUT->nSegment = 0;
        return kTableFailed;
    }
    fpReference(pLUT->fp);
    return kTableOk;
}

int KSLUTGetFileInfo(const KSLUT* pLUT, HostFile** pfp, int* pnSegment) {
    if (pLUT == nullptr) return kTableFailed;
    if (pfp != nullptr) *pfp = pLUT->fp;
    if (pnSegment != nullptr) *pnSegment = pLUT->nSegment;
    return kTableOk;
}

int KSLUTIsFileInfoValid(const KSLUT* pLUT) {
    constexpr int kFileOfSegments = 3;
    constexpr char kNoSegment = 'E';
    if (pLUT == nullptr || pLUT->fp == nullptr) return kTableFailed;
    if (fpValidate(pLUT->fp) == 0 || fp2type(pLUT->fp) != kFileOfSegments) return kTableFailed;
    char status = kNoSegment;
    int type = 0;
    IDBSegInfoIO(pLUT->fp, pLUT->nSegment, kRead, &status, &type, nullptr, nullptr, nullptr);
    return tableStatus(status != kNoSegment && type == kTableSegment);
}

int KSLUTCreateFileSegment(KSLUT* pLUT, HostFile* fp, int* pnSegment, const char* szName, const char* szDesc) {
    constexpr int kFileOfSegments = 3;
    if (pLUT == nullptr || fp == nullptr || fpValidate(fp) == 0 || fp2type(fp) != kFileOfSegments) return kTableFailed;
    std::int64_t blocks = 0;
    if (KSLUTGetBlockSize(pLUT, &blocks) != kTableOk) {
        std::fputs("KSLUTGetBlockSize() failed\n", stdout);
        return kTableFailed;
    }
    return underHostTrap(kTableFailed, [=] {
        const int segment = IDBSegCreate(fp, szName, szDesc, kTableSegment, blocks);
        if (pnSegment != nullptr) *pnSegment = segment;
        return kTableOk;
    });
}

int KSLUTSetAttributes(KSLUT* pLUT) {
    if (KSLUTIsValid(pLUT) != kTableOk || KSLUTIsFileInfoValid(pLUT) != kTableOk) return kTableFailed;
    const Heap<char[]> text = allocateArray<char>(coordinateRoom(*pLUT) + 1);
    if (!text) return kTableFailed;
    TextList list;
    return underHostTrap(kTableFailed, [&list, &text, pLUT] {
        list.reset(GDBMetaDataIO(pLUT->fp, kRead, kTableSegment, pLUT->nSegment, nullptr));
        // None of the keys below matches: what a larger table left behind stays, and readers go by the dimensions.
        if (list.get() != nullptr) list.remove("MD_KSLUT_*");
        setShape(*pLUT, list, text.get());
        GDBMetaDataIO(pLUT->fp, kWrite, kTableSegment, pLUT->nSegment, list.get());
        list.reset();
        return kTableOk;
    });
}

int KSLUTGetAttributes(KSLUT* pLUT) { return tableStatus(readAttributes(pLUT) == Attributes::read); }

int KSLUTFileIO(KSLUT* pLUT, int nMode, KSLUTVector* pOffset, KSLUTVector* pCount, KSLUTVector* pOpt1,
                KSLUTVector* pOpt2, int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved) {
    if (KSLUTIsValid(pLUT) != kTableOk || KSLUTIsFileInfoValid(pLUT) != kTableOk) return kTableFailed;
    const int dimensions = pLUT->nDimensions;
    if (!hasDimensions(pOffset, dimensions) || !hasDimensions(pCount, dimensions)) return kTableFailed;
    if (!isOptional(pOpt1, dimensions) || !isOptional(pOpt2, dimensions)) return kTableFailed;
    const Heap<std::int64_t[]> sizes = allocateArray<std::int64_t>(std::int64_t{dimensions});
    if (!sizes) return kTableFailed;
    std::copy_n(pLUT->panSizes, dimensions, sizes.get());
    return underHostTrap(kTableFailed, [&, dimensions] {
        IDBMultiArrayIO(pLUT->fp, nMode, pLUT->nSegment, dimensions, sizes.get(), pLUT->nElementSize,
                        pOffset->panValues, pCount->panValues, valuesOf(pOpt1), valuesOf(pOpt2), nPosition, pBuffer,
                        nBytes, pnMoved);
        return kTableOk;
    });
}
