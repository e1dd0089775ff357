// The fake host's segments and vector layers, kept simply: whole rectangles of bytes, and tables of numbers and texts.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "fakehost.hpp"
#include "print.hpp"

namespace kit {
namespace {

constexpr int kNativeFile = 3;
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
    const std::int64_t* step;    // null: 1 everywhere
    const std::int64_t* resume;  // index inside the rectangle to go on from; null: its start
    std::int64_t elements() const {
        std::int64_t product = 1;
        for (int d = 0; d < dimensions; ++d) product *= count[d];
        return product;
    }
    /// The number in the rectangle of its first element that moves.
    std::int64_t first() const {
        std::int64_t at = 0;
        for (int d = 0; d < dimensions; ++d) at = at * count[d] + (resume == nullptr ? 0 : resume[d]);
        return at;
    }
    /// The element of the array that is number i of the rectangle, the last dimension running fastest.
    std::int64_t position(std::int64_t i) const {
        std::int64_t at = 0;
        std::int64_t stride = 1;
        for (int d = dimensions - 1; d >= 0; --d) {
            at += (offset[d] + i % count[d] * (step == nullptr ? 1 : step[d])) * stride;
            i /= count[d];
            stride *= sizes[d];
        }
        return at;
    }
};

/// A transfer that a host carries out: one that stays in its array, which lies in a segment of data.
bool makesSense(const FakeSegment& segment, const Rectangle& r, int elementSize) {
    if (segment.type == kLayerSegment || r.dimensions < 1 || elementSize < 1) return false;
    if (r.sizes == nullptr || r.offset == nullptr || r.count == nullptr) return false;
    std::int64_t bytes = elementSize;
    for (int d = 0; d < r.dimensions; ++d) {
        const std::int64_t step = r.step == nullptr ? 1 : r.step[d];
        if (r.sizes[d] < 1 || r.count[d] < 0 || step < 1 || r.offset[d] < 0 || r.offset[d] >= r.sizes[d]) return false;
        if (r.count[d] > 0 && r.count[d] - 1 > (r.sizes[d] - 1 - r.offset[d]) / step) return false;
        if (r.resume != nullptr && r.count[d] > 0 && (r.resume[d] < 0 || r.resume[d] >= r.count[d])) return false;
        if (__builtin_mul_overflow(bytes, r.sizes[d], &bytes)) return false;
    }
    return bytes <= static_cast<std::int64_t>(segment.bytes.size());
}

std::int64_t moveElements(FakeSegment& segment, int mode, const Rectangle& rectangle, int elementSize, char* buffer,
                          std::int64_t limit) {
    const std::int64_t elements = rectangle.elements();
    const std::int64_t first = elements == 0 ? 0 : rectangle.first();
    const std::int64_t wanted = std::min(elements - first, limit);
    const auto size = static_cast<std::size_t>(elementSize);
    for (std::int64_t i = 0; i < wanted; ++i) {
        const std::size_t at = static_cast<std::size_t>(rectangle.position(first + i)) * size;
        char* outside = buffer + static_cast<std::size_t>(i) * size;
        if (mode == 0) {
            std::memcpy(outside, &segment.bytes[at], size);
        } else {
            std::memcpy(&segment.bytes[at], outside, size);
        }
    }
    return wanted * elementSize;
}

/// A layer's shape or field, or null after the misuse is noted; no layer is none.
FakeShape* shapeOf(FakeLayer* layer, int shape, const char* caller) {
    if (layer == nullptr) return nullptr;
    if (shape >= 0 && shape < static_cast<int>(layer->shapes.size())) {
        return &layer->shapes[static_cast<std::size_t>(shape)];
    }
    host().misuse.push_back(std::string(caller) + " of shape " + std::to_string(shape));
    return nullptr;
}

bool hasField(const FakeLayer* layer, int field, const char* caller) {
    if (layer == nullptr) return false;
    if (field >= 0 && field < static_cast<int>(layer->fields.size())) return true;
    host().misuse.push_back(std::string(caller) + " of field " + std::to_string(field));
    return false;
}

/// The shape of a call that names a shape and a field, when both are there.
FakeShape* valueOf(HostLayer* hLayer, int shape, int field, const char* caller) {
    FakeLayer* layer = host().layerOf(hLayer, caller);
    FakeShape* found = shapeOf(layer, shape, caller);
    return found != nullptr && hasField(layer, field, caller) ? found : nullptr;
}

bool given(const char* text, const char* caller) {
    if (text == nullptr) host().misuse.push_back(std::string(caller) + " of a null text");
    return text != nullptr;
}

std::size_t fieldLimit(const FakeLayer& layer) {
    const auto limit = host().fieldLimits.find(layer.fp->file->type);
    return limit == host().fieldLimits.end() ? std::numeric_limits<std::size_t>::max()
                                             : static_cast<std::size_t>(limit->second);
}

void noteFlags(const char* call, FakeLayer* layer) {
    if (layer != nullptr) host().layerFlags.emplace_back(call, layer->nFlags);
}

void copyLayer(const FakeLayer& from, HostFile* to) {
    FakeLayer& layer = host().addLayer(to, from.name, from.fields);
    layer.fields.resize(std::min(layer.fields.size(), fieldLimit(layer)));
    layer.formats = from.formats;
    layer.shapes = from.shapes;
}

}  // namespace

FakeLayer& FakeHost::addLayer(HostFile* fp, const std::string& name, const FakeFields& fields) {
    const int number = nextNumber(*fp->file);
    FakeSegment segment;
    segment.name = name;
    segment.type = kLayerSegment;
    fp->file->segments[number] = segment;
    auto& layer = fp->file->layers[number] = std::make_unique<FakeLayer>();
    layer->fp = fp;
    layer->nSegment = number;
    layer->nFlags = 0;
    layer->name = name;
    layer->type = fp->file->type;
    layer->fields = fields;
    return *layer;
}

FakeLayer* FakeHost::layerOf(HostLayer* layer, const char* caller) {
    for (auto& file : files_) {
        for (auto& kept : file.second.layers) {
            if (kept.second.get() == layer && isLive(layer->fp)) return kept.second.get();
        }
    }
    misuse.push_back(std::string(caller) + (layer == nullptr ? " of a null layer" : " of a dead layer"));
    return nullptr;
}

}  // namespace kit

using namespace kit;

extern "C" {

int IDBSegCreate(HostFile* fp, const char* szName, const char* szDesc, int nType, int64_t nBlocks) {
    if (!host().enter("IDBSegCreate", arguments(fp, szName, szDesc, nType, nBlocks))) return failing(0);
    FakeFile* file = host().fileOf(fp, "IDBSegCreate");
    if (file == nullptr || !fp->writable || file->type != kNativeFile) return failing(0);
    if (nType < 1 || nType == kLayerSegment || nBlocks < 0) return failing(0);
    const int number = nextNumber(*file);
    FakeSegment& segment = file->segments[number];
    segment.name = szName == nullptr ? "" : szName;
    segment.description = szDesc == nullptr ? "" : szDesc;
    segment.type = nType;
    segment.bytes.resize(static_cast<std::size_t>(nBlocks * kBlockBytes));
    return number;
}

int IDBSegInfoIO(HostFile* fp, int nSegment, int nMode, char* pchStatus, int* pnType, void* /*p0*/, void* /*p1*/,
                 void* /*p2*/) {
    if (!host().enter("IDBSegInfoIO", arguments(fp, nSegment, nMode))) return failing(0);
    const bool live = host().isLive(fp);
    const FakeSegment* segment = segmentOf(fp, nSegment, "IDBSegInfoIO");
    if (pchStatus != nullptr) *pchStatus = segment == nullptr ? 'E' : segment->status;
    if (pnType != nullptr) *pnType = segment == nullptr ? 0 : segment->type;
    return live && nMode == 0 ? 1 : failing(0);
}

int GDBSegNext(HostFile* fp, int nType, int nPrevious) {
    if (!host().enter("GDBSegNext", arguments(fp, nType, nPrevious))) return failing(-1);
    const FakeFile* file = host().fileOf(fp, "GDBSegNext");
    if (file == nullptr) return failing(-1);
    for (auto segment = file->segments.upper_bound(nPrevious); segment != file->segments.end(); ++segment) {
        if (segment->second.type == nType) return segment->first;
    }
    return -1;
}

int IDBMultiArrayIO(HostFile* fp, int nMode, int nSegment, int nDimensions, const int64_t* panSizes, int nElementSize,
                    const int64_t* panOffset, const int64_t* panCount, const int64_t* panOpt1, const int64_t* panOpt2,
                    int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved) {
    const bool proceed =
        host().enter("IDBMultiArrayIO", arguments(fp, nMode, nSegment, numbers(panSizes, nDimensions), nElementSize,
                                                  numbers(panOffset, nDimensions), numbers(panCount, nDimensions),
                                                  numbers(panOpt1, nDimensions), numbers(panOpt2, nDimensions),
                                                  nPosition, static_cast<const void*>(pBuffer), nBytes));
    FakeSegment* segment = segmentOf(fp, nSegment, "IDBMultiArrayIO");
    if (pnMoved != nullptr) *pnMoved = 0;
    if (!proceed || segment == nullptr || pBuffer == nullptr || nPosition < 0 || nBytes < 0) return failing(0);
    if (nMode != 0 && (nMode != 1 || !fp->writable)) return failing(0);
    const Rectangle rectangle = {nDimensions, panSizes, panOffset, panCount, panOpt1, panOpt2};
    if (!makesSense(*segment, rectangle, nElementSize)) return failing(0);
    const std::int64_t room = nBytes / nElementSize;
    const std::int64_t most = nPosition > 0 ? std::min(nPosition, room) : room;
    const std::int64_t moved =
        moveElements(*segment, nMode, rectangle, nElementSize, static_cast<char*>(pBuffer), most);
    if (pnMoved != nullptr) *pnMoved = moved;
    return 1;
}

HostLayer* GDBCreateLayer(HostFile* fp, const char* szName, const char* szText1, const char* szText2) {
    if (!host().enter("GDBCreateLayer", arguments(fp, szName, szText1, szText2))) return failing<HostLayer*>(nullptr);
    if (host().fileOf(fp, "GDBCreateLayer") == nullptr || !given(szName, "GDBCreateLayer") || !fp->writable) {
        return failing<HostLayer*>(nullptr);
    }
    return &host().addLayer(fp, szName, {});
}

HostLayer* GDBGetLayer(HostFile* fp, int nSegment) {
    if (!host().enter("GDBGetLayer", arguments(fp, nSegment))) return failing<HostLayer*>(nullptr);
    FakeFile* file = host().fileOf(fp, "GDBGetLayer");
    if (file == nullptr) return failing<HostLayer*>(nullptr);
    const auto layer = file->layers.find(nSegment);
    if (layer == file->layers.end() || layer->second->unreadable) return failing<HostLayer*>(nullptr);
    if (!host().isLive(layer->second->fp)) layer->second->fp = fp;
    return layer->second.get();
}

int GDBLayer2Type(HostLayer* hLayer) {
    if (!host().enter("GDBLayer2Type", "")) return failing(0);
    const FakeLayer* layer = host().layerOf(hLayer, "GDBLayer2Type");
    return layer == nullptr ? failing(0) : layer->type;
}

int GDBGetNumFields(HostLayer* hLayer) {
    if (!host().enter("GDBGetNumFields", "")) return failing(0);
    const FakeLayer* layer = host().layerOf(hLayer, "GDBGetNumFields");
    return layer == nullptr ? failing(0) : static_cast<int>(layer->fields.size());
}

const char* GDBGetFieldName(HostLayer* hLayer, int nField) {
    if (!host().enter("GDBGetFieldName", arguments(nField))) return failing<const char*>(nullptr);
    const FakeLayer* layer = host().layerOf(hLayer, "GDBGetFieldName");
    if (!hasField(layer, nField, "GDBGetFieldName")) return failing<const char*>(nullptr);
    return layer->fields[static_cast<std::size_t>(nField)].first.c_str();
}

int GDBDefineNewField(HostLayer* hLayer, const char* szName, int nFieldType) {
    if (!host().enter("GDBDefineNewField", arguments(szName, nFieldType))) return failing(-1);
    FakeLayer* layer = host().layerOf(hLayer, "GDBDefineNewField");
    if (layer == nullptr || !given(szName, "GDBDefineNewField")) return failing(-1);
    if (layer->fields.size() >= fieldLimit(*layer)) return failing(-1);
    layer->fields.emplace_back(szName, nFieldType);
    return static_cast<int>(layer->fields.size()) - 1;
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
    FakeLayer* layer = host().layerOf(hLayer, "GDBSetFieldFormat");
    if (!hasField(layer, nField, "GDBSetFieldFormat") || !given(szFormat, "GDBSetFieldFormat")) return failing(0);
    layer->formats[nField] = szFormat;
    return 1;
}

int GDBCreateShape(HostLayer* hLayer, int nShapeType) {
    const bool proceed = host().enter("GDBCreateShape", arguments(nShapeType));
    FakeLayer* layer = host().layerOf(hLayer, "GDBCreateShape");
    noteFlags("GDBCreateShape", layer);
    if (!proceed || layer == nullptr) return failing(-1);
    layer->shapes.emplace_back();
    return static_cast<int>(layer->shapes.size()) - 1;
}

int GDBSetValue(HostLayer* hLayer, int nShape, int nField, double dValue) {
    const bool proceed = host().enter("GDBSetValue", arguments(nShape, nField, dValue));
    FakeShape* shape = valueOf(hLayer, nShape, nField, "GDBSetValue");
    if (shape == nullptr) return failing(0);
    noteFlags("GDBSetValue", host().layerOf(hLayer, "GDBSetValue"));
    if (!proceed) return failing(0);
    shape->numbers[nField] = dValue;
    return 1;
}

int GDBSetValueString(HostLayer* hLayer, int nShape, int nField, const char* szValue) {
    const bool proceed = host().enter("GDBSetValueString", arguments(nShape, nField, szValue));
    FakeShape* shape = valueOf(hLayer, nShape, nField, "GDBSetValueString");
    if (shape == nullptr) return failing(0);
    noteFlags("GDBSetValueString", host().layerOf(hLayer, "GDBSetValueString"));
    if (!proceed || !given(szValue, "GDBSetValueString")) return failing(0);
    shape->texts[nField] = szValue;
    return 1;
}

double GDBGetValue(HostLayer* hLayer, int nShape, int nField) {
    if (!host().enter("GDBGetValue", arguments(nShape, nField))) return failing(0.0);
    FakeShape* shape = valueOf(hLayer, nShape, nField, "GDBGetValue");
    return shape == nullptr ? failing(0.0) : shape->numbers[nField];
}

char* GDBGetValueString(HostLayer* hLayer, int nShape, int nField) {
    if (!host().enter("GDBGetValueString", arguments(nShape, nField))) return failing<char*>(nullptr);
    FakeShape* shape = valueOf(hLayer, nShape, nField, "GDBGetValueString");
    if (shape == nullptr || shape->nullTexts.count(nField) != 0) return failing<char*>(nullptr);
    return shape->texts[nField].data();
}

int GDBVectorCopy(HostFile* fpSrc, int nSegSrc, HostFile* fpDst, int n0, int n1, int n2, int n3) {
    if (!host().enter("GDBVectorCopy", arguments(fpSrc, nSegSrc, fpDst, n0, n1, n2, n3))) return failing(0);
    FakeFile* from = host().fileOf(fpSrc, "GDBVectorCopy");
    if (from == nullptr || host().fileOf(fpDst, "GDBVectorCopy") == nullptr) return failing(0);
    const auto layer = from->layers.find(nSegSrc);
    if (layer == from->layers.end()) return failing(0);
    copyLayer(*layer->second, fpDst);
    return 1;
}

int GDBGetFirst(HostLayer* hLayer) {
    if (!host().enter("GDBGetFirst", "")) return failing(-1);
    const FakeLayer* layer = host().layerOf(hLayer, "GDBGetFirst");
    return layer == nullptr || layer->shapes.empty() ? -1 : 0;
}

int GDBGetNext(HostLayer* hLayer, int nShape) {
    if (!host().enter("GDBGetNext", arguments(nShape))) return failing(-1);
    const FakeLayer* layer = host().layerOf(hLayer, "GDBGetNext");
    if (layer == nullptr || nShape < 0) return -1;
    return nShape + 1 < static_cast<int>(layer->shapes.size()) ? nShape + 1 : -1;
}

}  // extern "C"
