// The store of an image: what its sidecar holds, what was gathered since, and what is derived from the raster where
// neither says anything. All handles on one file in this process share one store, found by the sidecar's place and the
// image.
#include "store.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <set>

#include "enviheader.hpp"
#include "import.hpp"
#include "kshost_app.h"
#include "raster.hpp"
#include "report.hpp"
#include "sidecar.hpp"
#include "tableformat.hpp"
#include "text.hpp"

namespace kshost {
namespace {

constexpr std::string_view kBandName = "ENVI:band names";

/// FNV-1a: tells two headers apart, and defends against nothing.
std::string hashOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%016llx-%zu", static_cast<unsigned long long>(hash), text.size());
    return buffer;
}

/// Decimals in which the library writes a key's number; negative for keys that it does not round.
int roundedDecimals(std::string_view key) {
    if (startsWith(key, "RadiometricTrans_Gain_") || startsWith(key, "RadiometricTrans_Offset_")) return 6;
    if (key == "ResponseProfile_Centre" || key == "ResponseProfile_FWHM") return 3;
    return -1;
}

/// True when a text is what the library makes of a longer one: rounded, perhaps after a stay in single precision.
bool isRoundingOf(const std::string& text, const std::string& longer, int decimals) {
    const std::optional<double> value = wholeNumber(longer);
    if (!value) return false;
    return text == fixedText(*value, decimals) ||
           text == fixedText(static_cast<double>(static_cast<float>(*value)), decimals);
}

StringList keepingLongerTexts(StringList list, const StringList& before) {
    std::vector<std::string> entries = list.entries();
    for (std::string& entry : entries) {
        const std::string key = entry.substr(0, entry.find('='));
        const int decimals = roundedDecimals(key);
        const char* old = decimals < 0 ? nullptr : before.find(key);
        if (old != nullptr && entry.size() > key.size() && isRoundingOf(entry.substr(key.size() + 1), old, decimals)) {
            entry = key + "=" + old;
        }
    }
    return StringList(std::move(entries));
}

/// Equal values, NaN being equal to itself: a no-data value may be one.
bool samePlace(const Georeference& a, const Georeference& b) {
    if (a.transform != b.transform || a.wkt != b.wkt || a.noData.size() != b.noData.size()) return false;
    for (auto i = a.noData.begin(), j = b.noData.begin(); i != a.noData.end(); ++i, ++j) {
        const bool bothNan = std::isnan(i->second) && std::isnan(j->second);
        if (i->first != j->first || !(i->second == j->second || bothNan)) return false;
    }
    return true;
}

/// Tells a file from its successor of the same name; empty when there is no file.
std::string inodeOf(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) return {};
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

class SidecarStore : public Store {
public:
    SidecarStore(std::string imageName, std::string path)
        : imageName_(std::move(imageName)),
          file_(fileOfName(imageName_)),
          path_(std::move(path)),
          inode_(inodeOf(file_)) {}

    /// A store in memory, which at each commit writes its layer in a format, if it has one.
    SidecarStore(std::string name, std::unique_ptr<TableFormat> format)
        : imageName_(std::move(name)), format_(std::move(format)) {}

    /// Takes in the raster's facts and the sidecar as they are now. What was gathered stays.
    bool load(const RasterFacts& facts, std::string& why);
    /// The same for a spectral library, whose own layer comes from its file.
    bool load(const RasterFacts& facts, ForeignLayer layer, std::string& why);
    /// The same for a native file.
    bool loadNative(std::string& why);
    /// A reason why the file must not be written, or an empty text.
    const std::string& writeObstacle() const { return writeObstacle_; }

    const StringList& list(int level, int number) override;
    void replaceList(int level, int number, StringList list) override;
    const Georeference& georeference() override;
    void setGeoreference(const Georeference& georeference) override;
    std::string channelDescription(int channel) override;
    void setChannelDescription(int channel, const std::string& text) override;
    void addHistory(const std::string& text) override { gathered_.history.push_back(text); }
    std::vector<std::string> history() override;
    std::shared_ptr<const Codebook> codebook() override { return content_.codebook; }
    std::string putCodebook(std::shared_ptr<const Codebook> codebook) override;
    Segments segments() override;
    std::shared_ptr<Table> table(int segment, std::string& why) override;
    int addTable(std::shared_ptr<EditableTable> table, std::string& why) override;
    int addDataSegment(const Segment& segment, std::int64_t blocks, std::string& why) override;
    std::string readData(int segment, const HyperRectangle& rectangle, unsigned char* to) override;
    std::string writeData(int segment, const HyperRectangle& rectangle, const unsigned char* from) override;
    int typeOf(int segment) const override;
    const TableFormat* format() const override { return format_.get(); }
    void markCreated() override;
    bool created() override { return markedCreated_ || content_.image.created; }
    bool dirty() const override;
    std::string commit() override;
    void headerRewritten(const std::string& headerText) override;
    bool headerStale() const override { return headerStale_; }
    std::vector<StringList> describedChannels() override;
    bool hasSidecar() const override { return hasSidecar_; }
    const std::vector<std::string>& remarks() const override { return remarks_; }
    const char* lend(std::string_view text) override { return lent_.emplace(text).first->c_str(); }

    void reportRemarks() const {
        for (const std::string& remark : remarks_) reportNotice(imageName_ + ": " + remark + ".");
    }

private:
    bool fits(const SidecarImage& image) const {
        return image.width == facts_.width && image.height == facts_.height && image.channels == facts_.channels;
    }
    void judgeHeader();
    const std::string* setDescription(int channel) const;
    /// The number behind the highest; 0 with a reason when there is none left.
    int nextSegment(std::string& why);
    std::string whyNotStored() const;
    SidecarImage imageToStore();
    SidecarImage imageAsItStands();
    std::string storeNow(SidecarChanges& changes);
    std::string storeInMemory(const SidecarChanges& changes);
    void refreshLayers();

    std::string imageName_;
    std::string file_;
    std::string path_;
    std::string inode_;
    RasterFacts facts_;
    ImportedMetadata derived_;
    std::vector<std::string> remarks_;
    SidecarContent content_;   // as in the sidecar, or empty
    SidecarChanges gathered_;  // since the last commit, but for the layers
    StoredLayers layers_;      // those that were asked for and the new ones; each knows what has changed
    std::optional<ForeignLayer> foreign_;
    std::unique_ptr<TableFormat> format_;
    bool hasSidecar_ = false;
    bool markedCreated_ = false;
    bool headerStale_ = false;
    std::string noticedHeader_;  // the hash of a changed header that was reported
    std::string writeObstacle_;
    std::set<std::string, std::less<>> lent_;
};

bool SidecarStore::load(const RasterFacts& facts, std::string& why) {
    std::optional<SidecarContent> content = readSidecar(path_, why);
    if (!why.empty()) return false;
    facts_ = facts;
    hasSidecar_ = content.has_value();
    const bool obstructedBefore = !writeObstacle_.empty();
    writeObstacle_.clear();
    content_ = content ? std::move(*content) : SidecarContent();
    if (hasSidecar_ && !fits(content_.image)) {
        const auto size = [](int width, int height, int channels) {
            return std::to_string(width) + " x " + std::to_string(height) + " x " + std::to_string(channels);
        };
        writeObstacle_ = path_ + " belongs to another image (" +
                         size(content_.image.width, content_.image.height, content_.image.channels) + ", not " +
                         size(facts.width, facts.height, facts.channels) + "); move it away to write to this one";
        if (!obstructedBefore) {
            reportNotice(imageName_ + ": " + path_ +
                         " belongs to an image of another size or number of channels and is not used.");
        }
        content_ = SidecarContent();
        hasSidecar_ = false;
    }
    judgeHeader();
    // An image of this host says nothing that was not stored: its header only repeats the lists.
    if (foreign_) {
        derived_ = {foreign_->fileList, {}, foreign_->remarks};
    } else {
        derived_ = created() ? ImportedMetadata() : importMetadata(facts_);
    }
    remarks_ = facts_.remarks;
    remarks_.insert(remarks_.end(), derived_.remarks.begin(), derived_.remarks.end());
    refreshLayers();
    return true;
}

bool SidecarStore::load(const RasterFacts& facts, ForeignLayer layer, std::string& why) {
    foreign_ = std::move(layer);
    return load(facts, why);
}

bool SidecarStore::loadNative(std::string& why) {
    std::optional<SidecarContent> content = readSidecar(path_, why);
    if (!why.empty()) return false;
    if (!content) return why = path_ + " holds nothing", false;
    if (content->image.channels != 0 || !content->image.created)
        return why = "this is a sidecar: open the image or library that it lies beside", false;
    facts_.width = content->image.width;
    facts_.height = content->image.height;
    content_ = std::move(*content);
    hasSidecar_ = true;
    refreshLayers();
    return true;
}

// ---- layers ----

Segments SidecarStore::segments() {
    Segments all = content_.segments;
    if (foreign_) all[1] = {kLayerSegment, foreign_->table->name(), foreign_->table->description(), 0};
    for (const auto& [number, layer] : layers_)
        all.insert({number, {kLayerSegment, layer.table->name(), layer.table->description(), 0}});
    return all;
}

std::shared_ptr<Table> SidecarStore::table(int segment, std::string& why) {
    if (foreign_ && segment == 1) return foreign_->table;
    if (const auto found = layers_.find(segment); found != layers_.end()) return found->second.table;
    const auto stored = content_.segments.find(segment);
    if (stored == content_.segments.end() || stored->second.type != kLayerSegment) {
        why = "there is no layer in segment " + std::to_string(segment);
        return nullptr;
    }
    StoredLayer layer = {std::make_shared<EditableTable>("", "", ""), 0};
    why = readStoredLayer(path_, segment, *layer.table, layer.revision);
    if (!why.empty()) return nullptr;
    layers_[segment] = layer;
    return layer.table;
}

int SidecarStore::typeOf(int segment) const {
    if (foreign_ && segment == 1) return KSHOST_TYPE_SPECTRAL_LIBRARY;
    if (!path_.empty()) return KSHOST_TYPE_NATIVE;
    return format_ != nullptr ? format_->type() : KSHOST_TYPE_MEMORY;
}

int SidecarStore::nextSegment(std::string& why) {
    const Segments taken = segments();
    const int highest = taken.empty() ? 0 : taken.rbegin()->first;
    if (highest < std::numeric_limits<int>::max()) return highest + 1;
    why = "it holds segment " + std::to_string(highest) + ", the last that there can be";
    return 0;
}

int SidecarStore::addTable(std::shared_ptr<EditableTable> table, std::string& why) {
    if (format_ != nullptr && !segments().empty()) {
        why = "a file of this format holds one layer";
        return 0;
    }
    const int number = nextSegment(why);
    if (number > 0) layers_[number] = {std::move(table), 0};
    return number;
}

/// Reads layers again that another program has stored meanwhile, and lets go of those that are no longer there.
void SidecarStore::refreshLayers() {
    if (path_.empty()) return;
    for (auto i = layers_.begin(); i != layers_.end();) {
        StoredLayer& layer = i->second;
        const auto stored = content_.segments.find(i->first);
        if (layer.table->dirty() || (stored != content_.segments.end() && stored->second.revision == layer.revision)) {
            ++i;
        } else if (stored == content_.segments.end() || layer.table.use_count() == 1) {
            i = layers_.erase(i);
        } else {
            EditableTable fresh("", "", "");
            const std::string why = readStoredLayer(path_, i->first, fresh, layer.revision);
            if (why.empty()) {
                *layer.table = std::move(fresh);
            } else {
                reportFailure(imageName_ + ": a layer that has changed cannot be read: " + why);
            }
            ++i;
        }
    }
}

void SidecarStore::markCreated() {
    if (created()) return;
    markedCreated_ = true;
    derived_ = ImportedMetadata();
}

/// Finds out whether the raster's header is the one that the sidecar goes with.
void SidecarStore::judgeHeader() {
    headerStale_ = false;
    if (!hasSidecar_) return;
    const SidecarImage& image = content_.image;
    const std::string hash = hashOf(facts_.headerText);
    if (hash == image.headerHash) return;
    // The process that stored this ended before it could rewrite the header, or before it could tell what it wrote.
    headerStale_ = image.created && (image.headerHash.empty() || hash == image.formerHeaderHash);
    if (headerStale_ || noticedHeader_ == hash) return;
    noticedHeader_ = hash;
    reportNotice(imageName_ + ": the header of the image has changed since " + path_ +
                 " was written; the metadata stored there still counts.");
}

const StringList& SidecarStore::list(int level, int number) {
    static const StringList kEmpty;
    const ListId id = {level, number};
    if (const auto found = gathered_.lists.find(id); found != gathered_.lists.end()) return found->second;
    if (const auto found = content_.lists.find(id); found != content_.lists.end()) return found->second;
    if (level == 1) return derived_.file;
    const auto channel = static_cast<size_t>(number) - 1;
    return level == 2 && number >= 1 && channel < derived_.channels.size() ? derived_.channels[channel] : kEmpty;
}

void SidecarStore::replaceList(int level, int number, StringList list) {
    const StringList& before = this->list(level, number);
    StringList after = keepingLongerTexts(std::move(list), before);
    // What is there already needs no storing; a list that was only derived goes on following its raster.
    if (after == before) return;
    gathered_.lists[{level, number}] = std::move(after);
}

const Georeference& SidecarStore::georeference() {
    if (gathered_.georeference) return *gathered_.georeference;
    return content_.georeference ? *content_.georeference : facts_.georeference;
}

void SidecarStore::setGeoreference(const Georeference& georeference) {
    if (!samePlace(georeference, this->georeference())) gathered_.georeference = georeference;
}

/// A description that was set, not taken from the raster; null when there is none.
const std::string* SidecarStore::setDescription(int channel) const {
    const auto gathered = gathered_.descriptions.find(channel);
    if (gathered != gathered_.descriptions.end()) return &gathered->second;
    const auto stored = content_.descriptions.find(channel);
    return stored != content_.descriptions.end() ? &stored->second : nullptr;
}

std::string SidecarStore::channelDescription(int channel) {
    if (const std::string* text = setDescription(channel)) return *text;
    if (const char* name = list(2, channel).find(kBandName)) return name;
    const auto index = static_cast<size_t>(channel) - 1;
    // GDAL makes up descriptions for ENVI channels without names.
    const bool named = channel >= 1 && index < facts_.bandNames.size() && facts_.driver != "ENVI";
    return named ? facts_.bandNames[index] : std::string();
}

void SidecarStore::setChannelDescription(int channel, const std::string& text) {
    if (channelDescription(channel) != text) gathered_.descriptions[channel] = text;
}

std::vector<StringList> SidecarStore::describedChannels() {
    std::vector<StringList> lists;
    for (int channel = 1; channel <= facts_.channels; ++channel) {
        StringList described = list(2, channel);
        if (const std::string* text = setDescription(channel)) described.set(kBandName, *text);
        lists.push_back(std::move(described));
    }
    return lists;
}

std::vector<std::string> SidecarStore::history() {
    std::vector<std::string> all = content_.history;
    all.insert(all.end(), gathered_.history.begin(), gathered_.history.end());
    return all;
}

bool SidecarStore::dirty() const {
    return markedCreated_ || !gathered_.lists.empty() || !gathered_.descriptions.empty() ||
           gathered_.georeference.has_value() || !gathered_.history.empty() ||
           std::any_of(layers_.begin(), layers_.end(), [](const auto& layer) { return layer.second.table->dirty(); });
}

/// The image's own row. The header that the host is about to write is composed here too, so that its hash is stored
/// with the content that it goes with; a process killed in between leaves a stale header and no riddle.
SidecarImage SidecarStore::imageToStore() {
    SidecarImage image = {facts_.width, facts_.height, facts_.channels, created(), hashOf(facts_.headerText), {}};
    image.formerHeaderHash = image.headerHash;
    // The image of a cube holds indexes and never says anything about bands.
    if (!image.created || content_.codebook != nullptr) return image;
    const bool textual = !facts_.headerPath.empty();
    image.headerHash =
        textual ? hashOf(composeEnviHeader(facts_, list(1, -1), describedChannels(), georeference())) : std::string();
    return image;
}

/// The image's own row for a commit that leaves its header alone.
SidecarImage SidecarStore::imageAsItStands() {
    SidecarImage image = imageToStore();
    image.headerHash = image.formerHeaderHash;
    return image;
}

std::string SidecarStore::storeInMemory(const SidecarChanges& changes) {
    if (format_ != nullptr && !changes.layers.empty()) {
        const std::string why = format_->write(*changes.layers.begin()->second.table);
        if (!why.empty()) return why;
    }
    keepInMemory(changes, content_);
    return {};
}

std::string SidecarStore::whyNotStored() const {
    if (!writeObstacle_.empty()) return writeObstacle_;
    // Beside another image of that name, or beside none, it would say what is not true.
    return inodeOf(file_) != inode_ ? file_ + " has been deleted or replaced since it was opened" : std::string();
}

std::string SidecarStore::storeNow(SidecarChanges& changes) {
    if (path_.empty()) return storeInMemory(changes);
    if (std::string why = whyNotStored(); !why.empty()) return why;
    changes.unchangedLayers.clear();
    for (const auto& [number, layer] : layers_)
        if (!layer.table->dirty()) changes.unchangedLayers[number] = layer;
    const std::string failure = commitSidecar(path_, changes, content_);
    if (failure.empty()) hasSidecar_ = true;
    return failure;
}

std::string SidecarStore::commit() {
    if (!dirty()) return {};
    gathered_.image = imageToStore();
    gathered_.layers.clear();
    for (const auto& [number, layer] : layers_)
        if (layer.table->dirty()) gathered_.layers[number] = layer;
    std::string failure = storeNow(gathered_);
    if (!failure.empty()) return failure;
    for (const auto& [number, stored] : gathered_.layers) {
        stored.table->markStored();
        layers_[number].revision = content_.changes;
    }
    gathered_ = SidecarChanges();
    refreshLayers();
    markedCreated_ = false;
    headerStale_ = content_.image.created && content_.image.headerHash != content_.image.formerHeaderHash;
    return {};
}

std::string SidecarStore::putCodebook(std::shared_ptr<const Codebook> codebook) {
    SidecarChanges changes;
    changes.image = imageAsItStands();
    changes.codebook = std::move(codebook);
    std::string failure = storeNow(changes);
    if (failure.empty()) markedCreated_ = false;
    return failure;
}

// ---- data segments ----

int SidecarStore::addDataSegment(const Segment& segment, std::int64_t blocks, std::string& why) {
    if (path_.empty()) return why = "a file in memory or of this format holds no data segments", 0;
    const int number = nextSegment(why);
    if (number == 0) return 0;
    SidecarChanges changes;
    changes.image = imageAsItStands();
    changes.dataSegment = NewDataSegment{number, segment, blocks};
    why = storeNow(changes);
    return why.empty() ? number : 0;
}

std::string SidecarStore::readData(int segment, const HyperRectangle& rectangle, unsigned char* to) {
    return kshost::readData(path_, segment, rectangle, to);
}

std::string SidecarStore::writeData(int segment, const HyperRectangle& rectangle, const unsigned char* from) {
    std::string why = whyNotStored();
    return why.empty() ? kshost::writeData(path_, segment, rectangle, from) : why;
}

void SidecarStore::headerRewritten(const std::string& headerText) {
    facts_.headerText = headerText;
    headerStale_ = false;
    if (!hasSidecar_ || content_.image.headerHash == hashOf(headerText)) return;
    SidecarChanges changes;
    changes.image = content_.image;
    changes.image.headerHash = changes.image.formerHeaderHash = hashOf(headerText);
    const std::string failure = storeNow(changes);
    if (!failure.empty()) reportFailure(imageName_ + ": " + failure + ".");
}

/// Where a file lies whatever name it was opened by: its folder's real path, its own name, and the image's inode, since
/// a deleted image and its successor of the same name are two.
std::string identity(const std::string& imageName, const std::string& sidecar) {
    const size_t slash = sidecar.rfind('/');
    const std::string folder = sidecar.substr(0, slash + 1);
    char* real = realpath(folder.c_str(), nullptr);
    std::string key = std::string(real != nullptr ? real : folder) + "/" + sidecar.substr(slash + 1);
    std::free(real);
    return key + "|" + inodeOf(fileOfName(imageName));
}

std::shared_ptr<SidecarStore> sharedStore(const std::string& key, const std::string& imageName,
                                          const std::string& path) {
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<SidecarStore>> stores;
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto i = stores.begin(); i != stores.end();) i = i->second.expired() ? stores.erase(i) : std::next(i);
    std::shared_ptr<SidecarStore> store = stores[key].lock();
    if (store == nullptr) {
        store = std::make_shared<SidecarStore>(imageName, path);
        stores[key] = store;
    }
    return store;
}

/// Brings a store up to date for one more handle; null with a reason when it cannot serve it.
template <class Load>
std::shared_ptr<Store> readied(const std::shared_ptr<SidecarStore>& store, bool writable, std::string& why, Load load) {
    const bool firstHandle = store.use_count() == 1;
    // Another program may have stored something since the last handle was opened; gathered writes wait for their
    // commit.
    if ((firstHandle || !store->dirty()) && !load()) return nullptr;
    if (writable && !store->writeObstacle().empty()) {
        why = store->writeObstacle();
        return nullptr;
    }
    if (firstHandle) store->reportRemarks();
    return store;
}

}  // namespace

std::shared_ptr<Store> openStore(const std::string& imageName, const RasterFacts& facts, bool writable,
                                 std::string& why) {
    why.clear();
    const std::string path = sidecarPath(imageName);
    const std::string key = identity(imageName, path) + "|" + std::to_string(facts.width) + "x" +
                            std::to_string(facts.height) + "x" + std::to_string(facts.channels);
    const std::shared_ptr<SidecarStore> store = sharedStore(key, imageName, path);
    return readied(store, writable, why, [&] { return store->load(facts, why); });
}

std::shared_ptr<Store> openLibraryStore(const std::string& name, const RasterFacts& facts, ForeignLayer layer,
                                        bool writable, std::string& why) {
    const std::string path = sidecarPath(name);
    const std::string key =
        identity(name, path) + "|library " + std::to_string(facts.width) + "x" + std::to_string(facts.height);
    const std::shared_ptr<SidecarStore> store = sharedStore(key, name, path);
    return readied(store, writable, why, [&] { return store->load(facts, std::move(layer), why); });
}

std::shared_ptr<Store> openNativeStore(const std::string& name, std::string& why) {
    const std::string path = fileOfName(name);
    const std::shared_ptr<SidecarStore> store = sharedStore(identity(name, path) + "|native", name, path);
    return readied(store, false, why, [&] { return store->loadNative(why); });
}

std::shared_ptr<Store> createNativeStore(const std::string& name, int width, int height, std::string& why) {
    const std::string path = fileOfName(name);
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) return why = std::strerror(errno), nullptr;
    ::close(file);
    SidecarChanges changes;
    changes.image.width = width;
    changes.image.height = height;
    changes.image.created = true;
    SidecarContent content;
    why = commitSidecar(path, changes, content);
    std::shared_ptr<Store> store = why.empty() ? openNativeStore(name, why) : nullptr;
    if (store == nullptr) {
        ::unlink(path.c_str());
        ::unlink((path + "-journal").c_str());
    }
    return store;
}

std::shared_ptr<Store> memoryStore(const std::string& name, std::unique_ptr<TableFormat> format) {
    return std::make_shared<SidecarStore>(name, std::move(format));
}

}  // namespace kshost
