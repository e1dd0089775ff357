// What the host keeps about a file beyond its samples: metadata lists, history, channel descriptions and place.
// Writes gather in memory, are seen at once by every handle on the file in this process, and commit together into the
// sidecar (sidecar.cpp). Lists that were never stored are derived from the raster's facts (import.cpp).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "codebook.hpp"
#include "facts.hpp"
#include "hyperrectangle.hpp"
#include "layerstore.hpp"
#include "stringlist.hpp"
#include "table.hpp"

namespace kshost {

/// What a file that only takes a table away (to another format) can hold, and how it is written.
class TableFormat;

class Store {
public:
    virtual ~Store() = default;

    /// The list of a level (1 file, 2 channel, 3 segment; number -1 at file level). Lives until the list is replaced.
    virtual const StringList& list(int level, int number) = 0;
    /// Gathers a new list. A gain, offset, centre or width written in the library's fixed formats that says no more
    /// than the text it replaces leaves the longer text standing, so that small gains survive a rewrite.
    virtual void replaceList(int level, int number, StringList list) = 0;

    virtual const Georeference& georeference() = 0;
    virtual void setGeoreference(const Georeference& georeference) = 0;

    virtual std::string channelDescription(int channel) = 0;
    virtual void setChannelDescription(int channel, const std::string& text) = 0;
    virtual void addHistory(const std::string& text) = 0;
    virtual std::vector<std::string> history() = 0;

    /// The codebook of a vector-quantized cube; null for any other image.
    virtual std::shared_ptr<const Codebook> codebook() = 0;
    /// Stores a codebook at once, in a transaction of its own; commit what was gathered first. Empty text on success,
    /// else the reason with the old codebook in place.
    virtual std::string putCodebook(std::shared_ptr<const Codebook> codebook) = 0;

    /// The directory of segments, new ones included.
    virtual Segments segments() = 0;
    /// A layer, the same object for all who ask; null with a reason. Layers that nobody has asked for are not read.
    virtual std::shared_ptr<Table> table(int segment, std::string& why) = 0;
    /// Gathers a new layer under the next number, which it returns; 0 with a reason when the file takes no more.
    virtual int addTable(std::shared_ptr<EditableTable> table, std::string& why) = 0;
    /// Makes a data segment at once, in a transaction of its own, under the next number, which it returns; commit what
    /// was gathered first. 0 with a reason when the file takes none.
    virtual int addDataSegment(const Segment& segment, std::int64_t blocks, std::string& why) = 0;
    /// Moves bytes between a data segment and a buffer; what was gathered has no part in it. Writing is a transaction
    /// of its own. Empty text on success, else the reason with the segment as it was.
    virtual std::string readData(int segment, const HyperRectangle& rectangle, unsigned char* to) = 0;
    virtual std::string writeData(int segment, const HyperRectangle& rectangle, const unsigned char* from) = 0;
    /// The type of the file or format that a layer lies in, as the boundary numbers them.
    virtual int typeOf(int segment) const = 0;
    /// The format that limits what a layer can hold; null where there is no limit.
    virtual const TableFormat* format() const = 0;

    /// Marks the file as made by this host; stored with the next commit.
    virtual void markCreated() = 0;
    virtual bool created() = 0;

    virtual bool dirty() const = 0;
    /// One transaction for all that was gathered; empty text on success, else the reason with everything still
    /// gathered.
    virtual std::string commit() = 0;
    /// Tells the store the header text that now describes the raster, when the host itself has rewritten the header.
    virtual void headerRewritten(const std::string& headerText) = 0;
    /// True when an image that the host created still has the header of an earlier commit: the process that stored the
    /// newer one ended before it could rewrite the header. Rewrite it at the next writable open.
    virtual bool headerStale() const = 0;
    /// The channel lists as a rewritten header shows them: with each channel's description as its band name.
    virtual std::vector<StringList> describedChannels() = 0;

    /// A copy of a text that lives as long as the store, for callers that expect values to live as long as the file.
    virtual const char* lend(std::string_view text) = 0;

    /// True when a sidecar exists and is used.
    virtual bool hasSidecar() const = 0;
    /// What was guessed, converted or ignored on the way in.
    virtual const std::vector<std::string>& remarks() const = 0;
};

/// A spectral library as its store sees it: its own layer is segment 1, and what it says of itself beside that.
struct ForeignLayer {
    std::shared_ptr<Table> table;
    StringList fileList;
    std::vector<std::string> remarks;
};

/// The store of an image, shared by every handle on the same file in this process.
/// A sidecar that is corrupt or of an unknown version makes the call fail. One of another image (size or channel count
/// differ) is reported and not used when reading, and makes the call fail when `writable`. A changed header is reported
/// and the sidecar holds. What was guessed, converted or ignored in the raster's own metadata is reported as notices.
/// Never creates a file: the sidecar appears with the first commit.
std::shared_ptr<Store> openStore(const std::string& imageName, const RasterFacts& facts, bool writable,
                                 std::string& why);
/// The same for a spectral library; its facts have no channels.
std::shared_ptr<Store> openLibraryStore(const std::string& name, const RasterFacts& facts, ForeignLayer layer,
                                        bool writable, std::string& why);
/// The store of a native file, which is a database itself.
std::shared_ptr<Store> openNativeStore(const std::string& name, std::string& why);
/// Makes such a file; null with a reason, and nothing left behind.
std::shared_ptr<Store> createNativeStore(const std::string& name, int width, int height, std::string& why);
/// A store in memory that writes its one layer in a format at each commit, or, without a format, nothing at all.
std::shared_ptr<Store> memoryStore(const std::string& name, std::unique_ptr<TableFormat> format);

}  // namespace kshost
