// The fake host's segments and vector layers, kept simply: whole rectangles of bytes, and tables of numbers and texts.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fakehost.hpp"
#include "print.hpp"

namespace kit {
namespace {

constexpr int kLayerSegment = 116;
constexpr std::int64_t kBlockBytes = 512;

FakeSegment* segmentOf(HostFile* fp, int segment, const char* caller) {
    FakeFile* file = host().fileOf(fp, caller);
    if (file == nullptr) return nullptr;
    const auto found = file->segments.find(segment);
    return found == file->segments.end() ? nullptr : &found->second;
}

int nextNumber(const FakeFile& file) { return file.segments.empty() ? 1 : file.segments.rbegin()->first + 1; }

struct Rectangle {
    int dimensions;
    const std::int64_t* sizes;
    const std::int64_t* offset;
    const std::int64_t* count;
    std::int64_t elements() const {
        std::int64_t product = 1;
        for (int d = 0; d < dimensions; ++d) product *= count[d];
        return product;
    }
    /// The element of the array that is number i of the rectangle, the last dimension running fastest.
    std::int64_t position(std::int64_t i) const {
        std::int64_t at = 0;
        std::int64_t stride = 1;
        for (int d = dimensions - 1; d >= 0; --d) {
            at += (offset[d] + i % count[d]) * stride;
            i /= count[d];
            stride *= sizes[d];
        }
        return at;
    }
};

std::int64_t moveElements(FakeSegment& segment, int mode, const Rectangle& rectangle, int elementSize, char* buffer,
                          std::int64_t limit) {
    const std::int64_t wanted = std::min(rectangle.elements(), limit / elementSize);
    const auto size = static_cast<std::size_t>(elementSize);
    for (std::int64_t i = 0; i < wanted; ++i) {
        const std::size_t at = static_cast<std::size_t>(rectangle.position(i)) * size;
        if (at + size > segment.bytes.size()) return -1;
        char* outside = buffer + static_cast<std::size_t>(i) * size;
        if (mode == 0) {
            std::memcpy(outside, &segment.bytes[at], size);
        } else {
            std::memcpy(&segment.bytes[at], outside, size);
        }
    }
    return wanted * elementSize;
}

FakeLayer* fake(HostLayer* hLayer) { return static_cast<FakeLayer*>(hLayer); }

FakeShape* shapeOf(HostLayer* hLayer, int shape) {
    if (hLayer == nullptr || shape < 0 || shape >= static_cast<int>(fake(hLayer)->shapes.size())) return nullptr;
    return &fake(hLayer)->shapes[static_cast<std::size_t>(shape)];
}

FakeLayer* addLayer(HostFile* fp, const char* name) {
    const int number = nextNumber(*fp->file);
    FakeSegment segment;
    segment.name = name;
    segment.type = kLayerSegment;
    fp->file->segments[number] = segment;
    auto layer = std::make_unique<FakeLayer>();
    layer->fp = fp;
    layer->nSegment = number;
    layer->nFlags = 0;
    layer->name = name;
    FakeLayer* raw = layer.get();
    fp->file->layers[number] = std::move(layer);
    return raw;
}

int copyLayer(const FakeLayer& from, HostFile* to) {
    FakeLayer* layer = addLayer(to, from.name.c_str());
    layer->fields = from.fields;
    layer->formats = from.formats;
    layer->shapes = from.shapes;
    return layer->nSegment;
}

}  // namespace
}  // namespace kit

using namespace kit;

extern "C" {

int IDBSegCreate(HostFile* fp, const char* szName, const char* szDesc, int nType, int64_t nBlocks) {
    if (!host().enter("IDBSegCreate", arguments(fp, szName, szDesc, nType, nBlocks))) return failing(0);
    FakeFile* file = host().fileOf(fp, "IDBSegCreate");
    if (file == nullptr) return failing(0);
    const int number = nextNumber(*file);
    FakeSegment& segment = file->segments[number];
    segment.name = szName;
    segment.description = szDesc;
    segment.type = nType;
    segment.bytes.resize(static_cast<std::size_t>(nBlocks * kBlockBytes));
    return number;
}

int IDBSegInfoIO(HostFile* fp, int nSegment, int nMode, char* pchStatus, int* pnType, void* /*p0*/, void* /*p1*/,
                 void* /*p2*/) {
    if (!host().enter("IDBSegInfoIO", arguments(fp, nSegment, nMode))) return failing(0);
    const FakeSegment* segment = segmentOf(fp, nSegment, "IDBSegInfoIO");
    if (pchStatus != nullptr) *pchStatus = segment == nullptr ? 'E' : 'A';
    if (pnType != nullptr) *pnType = segment == nullptr ? 0 : segment->type;
    return 1;
}

int GDBSegNext(HostFile* fp, int nType, int nPrevious) {
    if (!host().enter("GDBSegNext", arguments(fp, nType, nPrevious))) return failing(0);
    const FakeFile* file = host().fileOf(fp, "GDBSegNext");
    if (file == nullptr) return 0;
    for (auto segment = file->segments.upper_bound(nPrevious); segment != file->segments.end(); ++segment) {
        if (segment->second.type == nType) return segment->first;
    }
    return 0;
}

int IDBMultiArrayIO(HostFile* fp, int nMode, int nSegment, int nDimensions, const int64_t* panSizes, int nElementSize,
                    const int64_t* panOffset, const int64_t* panCount, const int64_t* panOpt1, const int64_t* panOpt2,
                    int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved) {
    const bool proceed =
        host().enter("IDBMultiArrayIO", arguments(fp, nMode, nSegment, numbers(panSizes, nDimensions), nElementSize,
                                                  numbers(panOffset, nDimensions), numbers(panCount, nDimensions),
                                                  static_cast<const void*>(panOpt1), static_cast<const void*>(panOpt2),
                                                  nPosition, static_cast<const void*>(pBuffer), nBytes));
    FakeSegment* segment = segmentOf(fp, nSegment, "IDBMultiArrayIO");
    if (!proceed || segment == nullptr) return failing(0);
    const Rectangle rectangle = {nDimensions, panSizes, panOffset, panCount};
    const std::int64_t moved =
        moveElements(*segment, nMode, rectangle, nElementSize, static_cast<char*>(pBuffer), nBytes);
    if (moved < 0) return failing(0);
    if (pnMoved != nullptr) *pnMoved = moved;
    return 1;
}

HostLayer* GDBCreateLayer(HostFile* fp, const char* szName, const char* szText1, const char* szText2) {
    if (!host().enter("GDBCreateLayer", arguments(fp, szName, szText1, szText2))) return failing<HostLayer*>(nullptr);
    if (host().fileOf(fp, "GDBCreateLayer") == nullptr) return failing<HostLayer*>(nullptr);
    return addLayer(fp, szName);
}

HostLayer* GDBGetLayer(HostFile* fp, int nSegment) {
    if (!host().enter("GDBGetLayer", arguments(fp, nSegment))) return failing<HostLayer*>(nullptr);
    FakeFile* file = host().fileOf(fp, "GDBGetLayer");
    if (file == nullptr) return failing<HostLayer*>(nullptr);
    const auto layer = file->layers.find(nSegment);
    return layer == file->layers.end() ? failing<HostLayer*>(nullptr) : layer->second.get();
}

int GDBLayer2Type(HostLayer* hLayer) {
    host().enter("GDBLayer2Type", "");
    return hLayer == nullptr ? 0 : kLayerSegment;
}

int GDBGetNumFields(HostLayer* hLayer) {
    if (!host().enter("GDBGetNumFields", "")) return failing(0);
    return static_cast<int>(fake(hLayer)->fields.size());
}

const char* GDBGetFieldName(HostLayer* hLayer, int nField) {
    if (!host().enter("GDBGetFieldName", arguments(nField))) return failing<const char*>(nullptr);
    if (nField < 0 || nField >= static_cast<int>(fake(hLayer)->fields.size())) return nullptr;
    return fake(hLayer)->fields[static_cast<std::size_t>(nField)].first.c_str();
}

int GDBDefineNewField(HostLayer* hLayer, const char* szName, int nFieldType) {
    if (!host().enter("GDBDefineNewField", arguments(szName, nFieldType))) return failing(-1);
    fake(hLayer)->fields.emplace_back(szName, nFieldType);
    return static_cast<int>(fake(hLayer)->fields.size()) - 1;
}

char* GDBGenFieldFormat(int nFieldType, int nWidth, int n0, int n1) {
    if (!host().enter("GDBGenFieldFormat", arguments(nFieldType, nWidth, n0, n1))) return failing<char*>(nullptr);
    constexpr std::size_t kRoom = 64;
    char* format = static_cast<char*>(std::malloc(kRoom));
    std::snprintf(format, kRoom, "%d:%d:%d:%d", nFieldType, nWidth, n0, n1);
    return format;
}

int GDBSetFieldFormat(HostLayer* hLayer, int nField, const char* szFormat) {
    if (!host().enter("GDBSetFieldFormat", arguments(nField, szFormat))) return failing(0);
    fake(hLayer)->formats[nField] = szFormat;
    return 1;
}

int GDBCreateShape(HostLayer* hLayer, int nShapeType) {
    if (!host().enter("GDBCreateShape", arguments(nShapeType))) return failing(-1);
    fake(hLayer)->shapes.emplace_back();
    return static_cast<int>(fake(hLayer)->shapes.size()) - 1;
}

int GDBSetValue(HostLayer* hLayer, int nShape, int nField, double dValue) {
    if (!host().enter("GDBSetValue", arguments(nShape, nField, dValue))) return failing(0);
    FakeShape* shape = shapeOf(hLayer, nShape);
    if (shape == nullptr) return failing(0);
    shape->numbers[nField] = dValue;
    return 1;
}

int GDBSetValueString(HostLayer* hLayer, int nShape, int nField, const char* szValue) {
    if (!host().enter("GDBSetValueString", arguments(nShape, nField, szValue))) return failing(0);
    FakeShape* shape = shapeOf(hLayer, nShape);
    if (shape == nullptr) return failing(0);
    shape->texts[nField] = szValue;
    return 1;
}

double GDBGetValue(HostLayer* hLayer, int nShape, int nField) {
    if (!host().enter("GDBGetValue", arguments(nShape, nField))) return failing(0.0);
    FakeShape* shape = shapeOf(hLayer, nShape);
    return shape == nullptr ? 0.0 : shape->numbers[nField];
}

char* GDBGetValueString(HostLayer* hLayer, int nShape, int nField) {
    if (!host().enter("GDBGetValueString", arguments(nShape, nField))) return failing<char*>(nullptr);
    FakeShape* shape = shapeOf(hLayer, nShape);
    return shape == nullptr ? nullptr : shape->texts[nField].data();
}

int GDBVectorCopy(HostFile* fpSrc, int nSegSrc, HostFile* fpDst, int n0, int n1, int n2, int n3) {
    if (!host().enter("GDBVectorCopy", arguments(fpSrc, nSegSrc, fpDst, n0, n1, n2, n3))) return failing(0);
    FakeFile* from = host().fileOf(fpSrc, "GDBVectorCopy");
    if (from == nullptr || host().fileOf(fpDst, "GDBVectorCopy") == nullptr) return failing(0);
    const auto layer = from->layers.find(nSegSrc);
    return layer == from->layers.end() ? failing(0) : copyLayer(*layer->second, fpDst);
}

int GDBGetFirst(HostLayer* hLayer) {
    if (!host().enter("GDBGetFirst", "")) return failing(-1);
    return shapeOf(hLayer, 0) == nullptr ? -1 : 0;
}

int GDBGetNext(HostLayer* hLayer, int nShape) {
    if (!host().enter("GDBGetNext", arguments(nShape))) return failing(-1);
    return shapeOf(hLayer, nShape + 1) == nullptr ? -1 : nShape + 1;
}

}  // extern "C"
