// Vector layers at the boundary. Every call checks its handle among the live ones and its shape and field against the
// table, since spectra are moved value by value by callers that look at no result.
#include "layer.hpp"

#include <charconv>
#include <cstdlib>
#include <mutex>
#include <unordered_set>
#include <utility>

#include "hostfile.hpp"
#include "report.hpp"
#include "tableformat.hpp"
#include "text.hpp"

namespace kshost {
namespace {

struct LiveLayers {
    std::mutex lock;
    std::unordered_set<const HostLayer*> all;
};

LiveLayers& liveLayers() {
    static LiveLayers layers;
    return layers;
}

std::nullptr_t refused(const char* caller, const std::string& why) {
    reportFailure(std::string(caller) + ": " + why + ".");
    return nullptr;
}

LayerHandle* liveLayer(HostLayer* layer, const char* caller) {
    if (layer == nullptr) return refused(caller, "no layer given");
    const std::lock_guard<std::mutex> guard(liveLayers().lock);
    if (liveLayers().all.count(layer) != 0) return static_cast<LayerHandle*>(layer);
    return refused(caller, "the layer's file is not open");
}

std::string placeOf(const LayerHandle& layer) {
    return layer.fp->name + (layer.fp->name.empty() ? "segment " : ", segment ") + std::to_string(layer.nSegment);
}

/// The layer's table for a change, or null after a report.
EditableTable* changeable(const LayerHandle& layer, const char* caller) {
    if (!mayWrite(*layer.fp, caller)) return nullptr;
    if (layer.editable() == nullptr)
        return refused(caller,
                       placeOf(layer) + " is read as it lies in its file; copy it into another file to change it");
    return layer.editable();
}

bool hasField(const LayerHandle& layer, int field, const char* caller) {
    if (field >= 0 && static_cast<size_t>(field) < layer.table().fields().size()) return true;
    refused(caller, placeOf(layer) + " has no field " + std::to_string(field));
    return false;
}

bool hasShape(const LayerHandle& layer, int shape, const char* caller) {
    if (shape >= 0 && shape < layer.table().shapes()) return true;
    refused(caller, placeOf(layer) + " has no shape " + std::to_string(shape));
    return false;
}

bool isReal(const Table& table, int field) { return table.fields()[static_cast<size_t>(field)].type == kRealField; }

/// The number that a text begins with; false when it begins with none.
bool numberOf(std::string_view text, double& number) {
    text = trimmed(text);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

// ---- layers ----

HostLayer* handleOf(HostFile& file, int segment, std::shared_ptr<Table> table) {
    auto& handle = file.layers[segment];
    if (handle == nullptr) handle = std::make_unique<LayerHandle>(file, segment, std::move(table));
    return handle.get();
}

HostLayer* createLayer(HostFile* fp, const char* szName, const char* szText1, const char* szText2) {
    constexpr const char* kCaller = "GDBCreateLayer ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || !mayWrite(*file, kCaller)) return nullptr;
    if (szName == nullptr) return refused(kCaller, "no name given");
    auto table =
        std::make_shared<EditableTable>(szName, szText1 != nullptr ? szText1 : "", szText2 != nullptr ? szText2 : "");
    std::string why;
    const int segment = file->store->addTable(table, why);
    if (segment == 0) return refused(kCaller, file->name + ": " + why);
    return handleOf(*file, segment, std::move(table));
}

HostLayer* getLayer(HostFile* fp, int segment) {
    constexpr const char* kCaller = "GDBGetLayer ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr) return nullptr;
    if (const auto known = file->layers.find(segment); known != file->layers.end()) return known->second.get();
    std::string why;
    std::shared_ptr<Table> table = file->store->table(segment, why);
    if (table == nullptr) return refused(kCaller, file->name + ": " + why);
    return handleOf(*file, segment, std::move(table));
}

/// A copy of what a format takes of a table; everything where there is no format.
std::shared_ptr<EditableTable> copyOf(Table& from, const std::vector<KeptField>& kept) {
    auto copy = std::make_shared<EditableTable>(from.name(), from.description(), from.detail());
    for (const KeptField& field : kept) {
        const Field& source = from.fields()[static_cast<size_t>(field.field)];
        copy->setFormat(copy->addField(field.name, source.type), source.format);
    }
    for (int shape = 0; shape < from.shapes(); ++shape) {
        copy->addShape(from.shapeType(shape));
        for (int i = 0; i < static_cast<int>(kept.size()); ++i) {
            const int field = kept[static_cast<size_t>(i)].field;
            if (isReal(from, field))
                copy->setNumber(shape, i, from.number(shape, field));
            else
                copy->setText(shape, i, from.text(shape, field));
        }
    }
    return copy;
}

std::vector<KeptField> keptFields(const Store& store, const std::vector<Field>& fields) {
    if (store.format() != nullptr) return store.format()->kept(fields);
    std::vector<KeptField> all;
    for (const Field& field : fields) all.push_back({static_cast<int>(all.size()), field.name});
    return all;
}

int copyLayer(HostFile* fpSrc, int segment, HostFile* fpDst) {
    constexpr const char* kCaller = "GDBVectorCopy ()";
    HostFile* source = live(fpSrc, kCaller);
    HostFile* target = live(fpDst, kCaller);
    if (source == nullptr || target == nullptr || !mayWrite(*target, kCaller)) return 0;
    std::string why;
    const std::shared_ptr<Table> from = source->store->table(segment, why);
    int number = 0;
    if (from != nullptr) {
        const std::vector<KeptField> kept = keptFields(*target->store, from->fields());
        if (kept.empty() && !from->fields().empty())
            why = target->name + ": a file of this format holds none of the layer's fields";
        else
            number = target->store->addTable(copyOf(*from, kept), why);
    }
    if (number == 0) refused(kCaller, source->name + ": " + why);
    return number;
}

// ---- fields and shapes ----

int defineField(HostLayer* hLayer, const char* szName, int type) {
    constexpr const char* kCaller = "GDBDefineNewField ()";
    const LayerHandle* layer = liveLayer(hLayer, kCaller);
    EditableTable* table = layer != nullptr ? changeable(*layer, kCaller) : nullptr;
    if (table == nullptr) return -1;
    if (szName == nullptr || szName[0] == '\0') return refused(kCaller, "no name given"), -1;
    if (type != kRealField && type != kTextField)
        return refused(kCaller, "there are no fields of type " + std::to_string(type)), -1;
    if (const TableFormat* format = layer->fp->store->format()) {
        std::vector<Field> fields = table->fields();
        fields.push_back({szName, type, {}});
        const std::vector<KeptField> kept = format->kept(fields);
        if (kept.size() != fields.size() || kept.back().name != szName)
            return refused(kCaller, layer->fp->name + ": a file of this format cannot hold the field " + szName), -1;
    }
    return table->addField(szName, type);
}

bool setFormat(HostLayer* hLayer, int field, const char* szFormat) {
    constexpr const char* kCaller = "GDBSetFieldFormat ()";
    const LayerHandle* layer = liveLayer(hLayer, kCaller);
    EditableTable* table = layer != nullptr ? changeable(*layer, kCaller) : nullptr;
    if (table == nullptr || !hasField(*layer, field, kCaller)) return false;
    if (szFormat == nullptr) return refused(kCaller, "no format given"), false;
    table->setFormat(field, szFormat);
    return true;
}

std::string formatOf(int type, int width, int decimals) {
    const std::string size = width > 0 ? std::to_string(width) : "";
    if (type == kTextField) return "%-" + size + "s";
    return "%" + size + (decimals > 0 ? "." + std::to_string(decimals) + "f" : "g");
}

int createShape(HostLayer* hLayer, int type) {
    constexpr const char* kCaller = "GDBCreateShape ()";
    const LayerHandle* layer = liveLayer(hLayer, kCaller);
    EditableTable* table = layer != nullptr ? changeable(*layer, kCaller) : nullptr;
    return table != nullptr ? table->addShape(type) : -1;
}

// ---- values ----

/// The layer of a call that names a shape and a field which are both there; null after a report.
LayerHandle* layerWith(HostLayer* hLayer, int shape, int field, const char* caller) {
    LayerHandle* layer = liveLayer(hLayer, caller);
    return layer != nullptr && hasShape(*layer, shape, caller) && hasField(*layer, field, caller) ? layer : nullptr;
}

bool setNumber(HostLayer* hLayer, int shape, int field, double value) {
    constexpr const char* kCaller = "GDBSetValue ()";
    const LayerHandle* layer = layerWith(hLayer, shape, field, kCaller);
    EditableTable* table = layer != nullptr ? changeable(*layer, kCaller) : nullptr;
    if (table == nullptr) return false;
    if (isReal(*table, field))
        table->setNumber(shape, field, value);
    else
        table->setText(shape, field, shortestText(value));
    return true;
}

bool setText(HostLayer* hLayer, int shape, int field, const char* szValue) {
    constexpr const char* kCaller = "GDBSetValueString ()";
    const LayerHandle* layer = layerWith(hLayer, shape, field, kCaller);
    EditableTable* table = layer != nullptr ? changeable(*layer, kCaller) : nullptr;
    if (table == nullptr) return false;
    if (szValue == nullptr) return refused(kCaller, "no text given"), false;
    if (!isReal(*table, field)) return table->setText(shape, field, szValue), true;
    double value = 0;
    if (!numberOf(szValue, value))
        return refused(kCaller, placeOf(*layer) + ": \"" + szValue + "\" is no number"), false;
    table->setNumber(shape, field, value);
    return true;
}

bool getNumber(HostLayer* hLayer, int shape, int field, double& value) {
    const LayerHandle* layer = layerWith(hLayer, shape, field, "GDBGetValue ()");
    if (layer == nullptr) return false;
    Table& table = layer->table();
    if (isReal(table, field))
        value = table.number(shape, field);
    else if (!numberOf(table.text(shape, field), value))
        value = 0.0;
    return true;
}

char* getText(HostLayer* hLayer, int shape, int field) {
    LayerHandle* layer = layerWith(hLayer, shape, field, "GDBGetValueString ()");
    if (layer == nullptr) return nullptr;
    Table& table = layer->table();
    return isReal(table, field) ? layer->lend(shortestText(table.number(shape, field)))
                                : layer->lend(table.text(shape, field));
}

/// Runs the body of an exported function; a failing value is followed by the jump to the armed trap.
template <class R, class Body>
R calling(const char* caller, R failure, Body body) {
    const R result = guarded(caller, failure, body);
    if (result == failure) abandonIfTrapped();
    return result;
}

}  // namespace

LayerHandle::LayerHandle(HostFile& file, int segment, std::shared_ptr<Table> table)
    : HostLayer{&file, segment, 0}, table_(std::move(table)), editable_(dynamic_cast<EditableTable*>(table_.get())) {
    const std::lock_guard<std::mutex> guard(liveLayers().lock);
    liveLayers().all.insert(this);
}

LayerHandle::~LayerHandle() {
    const std::lock_guard<std::mutex> guard(liveLayers().lock);
    liveLayers().all.erase(this);
}

char* LayerHandle::lend(std::string_view text) {
    std::string& copy = lent_[next_];
    next_ = (next_ + 1) % lent_.size();
    copy.assign(text);
    return copy.data();
}

}  // namespace kshost

using kshost::calling;

HostLayer* GDBCreateLayer(HostFile* fp, const char* szName, const char* szText1, const char* szText2) {
    return calling<HostLayer*>("GDBCreateLayer ()", nullptr,
                               [=] { return kshost::createLayer(fp, szName, szText1, szText2); });
}

HostLayer* GDBGetLayer(HostFile* fp, int nSegment) {
    return calling<HostLayer*>("GDBGetLayer ()", nullptr, [=] { return kshost::getLayer(fp, nSegment); });
}

int GDBLayer2Type(HostLayer* hLayer) {
    return calling("GDBLayer2Type ()", 0, [=] {
        const kshost::LayerHandle* layer = kshost::liveLayer(hLayer, "GDBLayer2Type ()");
        return layer != nullptr ? layer->fp->store->typeOf(layer->nSegment) : 0;
    });
}

int GDBGetNumFields(HostLayer* hLayer) {
    const int count = calling("GDBGetNumFields ()", -1, [=] {
        const kshost::LayerHandle* layer = kshost::liveLayer(hLayer, "GDBGetNumFields ()");
        return layer != nullptr ? static_cast<int>(layer->table().fields().size()) : -1;
    });
    return count >= 0 ? count : 0;
}

const char* GDBGetFieldName(HostLayer* hLayer, int nField) {
    constexpr const char* kCaller = "GDBGetFieldName ()";
    return calling<const char*>(kCaller, nullptr, [=]() -> const char* {
        const kshost::LayerHandle* layer = kshost::liveLayer(hLayer, kCaller);
        if (layer == nullptr || !kshost::hasField(*layer, nField, kCaller)) return nullptr;
        return layer->fp->store->lend(layer->table().fields()[static_cast<size_t>(nField)].name);
    });
}

int GDBDefineNewField(HostLayer* hLayer, const char* szName, int nFieldType) {
    return calling("GDBDefineNewField ()", -1, [=] { return kshost::defineField(hLayer, szName, nFieldType); });
}

char* GDBGenFieldFormat(int nFieldType, int nWidth, int n0, int /*n1*/) {
    constexpr const char* kCaller = "GDBGenFieldFormat ()";
    return calling<char*>(kCaller, nullptr, [=]() -> char* {
        if (nFieldType != kshost::kRealField && nFieldType != kshost::kTextField)
            return kshost::refused(kCaller, "there are no fields of type " + std::to_string(nFieldType));
        char* format = _HString(kshost::formatOf(nFieldType, nWidth, n0).c_str());
        return format != nullptr ? format : kshost::refused(kCaller, "out of memory");
    });
}

int GDBSetFieldFormat(HostLayer* hLayer, int nField, const char* szFormat) {
    return calling("GDBSetFieldFormat ()", 0, [=] { return kshost::setFormat(hLayer, nField, szFormat) ? 1 : 0; });
}

int GDBCreateShape(HostLayer* hLayer, int nShapeType) {
    return calling("GDBCreateShape ()", -1, [=] { return kshost::createShape(hLayer, nShapeType); });
}

int GDBSetValue(HostLayer* hLayer, int nShape, int nField, double dValue) {
    return calling("GDBSetValue ()", 0, [=] { return kshost::setNumber(hLayer, nShape, nField, dValue) ? 1 : 0; });
}

int GDBSetValueString(HostLayer* hLayer, int nShape, int nField, const char* szValue) {
    return calling("GDBSetValueString ()", 0, [=] { return kshost::setText(hLayer, nShape, nField, szValue) ? 1 : 0; });
}

double GDBGetValue(HostLayer* hLayer, int nShape, int nField) {
    double value = 0.0;
    const bool done = kshost::guarded("GDBGetValue ()", false,
                                      [=, &value] { return kshost::getNumber(hLayer, nShape, nField, value); });
    if (!done) kshost::abandonIfTrapped();
    return done ? value : 0.0;
}

char* GDBGetValueString(HostLayer* hLayer, int nShape, int nField) {
    return calling<char*>("GDBGetValueString ()", nullptr, [=] { return kshost::getText(hLayer, nShape, nField); });
}

int GDBVectorCopy(HostFile* fpSrc, int nSegSrc, HostFile* fpDst, int /*n0*/, int /*n1*/, int /*n2*/, int /*n3*/) {
    return calling("GDBVectorCopy ()", 0, [=] { return kshost::copyLayer(fpSrc, nSegSrc, fpDst); });
}

int GDBGetFirst(HostLayer* hLayer) { return GDBGetNext(hLayer, -1); }

int GDBGetNext(HostLayer* hLayer, int nShape) {
    // -1 is the end of a layer, not a failure.
    constexpr int kFailed = -2;
    const int next = calling("GDBGetNext ()", kFailed, [=] {
        const kshost::LayerHandle* layer = kshost::liveLayer(hLayer, "GDBGetNext ()");
        if (layer == nullptr) return kFailed;
        return nShape >= -1 && nShape + 1 < layer->table().shapes() ? nShape + 1 : -1;
    });
    return next >= 0 ? next : -1;
}
