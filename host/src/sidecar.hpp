// The file beside an image that holds what the image's own format cannot: one SQLite database, read whole and written
// in one transaction. No connection outlives a call, so nothing is locked in between.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "codebook.hpp"
#include "datastore.hpp"
#include "facts.hpp"
#include "hyperrectangle.hpp"
#include "layerstore.hpp"
#include "stringlist.hpp"

namespace kshost {

/// Level and number of a metadata list.
using ListId = std::pair<int, int>;

/// The image that a sidecar was written for.
struct SidecarImage {
    int width = 0;
    int height = 0;
    int channels = 0;
    bool created = false;          // by this host, which then also writes its header
    std::string headerHash;        // of the header that goes with the content; empty when it was not known in advance
    std::string formerHeaderHash;  // of the header that stood at the time of the commit
};

struct SidecarContent {
    SidecarImage image;
    std::int64_t changes = 0;            // counts the commits
    std::map<ListId, StringList> lists;  // a list stored without entries is here too
    std::map<int, std::string> descriptions;
    std::optional<Georeference> georeference;
    std::vector<std::string> history;
    std::shared_ptr<const Codebook> codebook;  // of a vector-quantized cube, else null
    Segments segments;                         // the directory; what they hold is read when it is asked for
};

/// What one commit stores. Levels that are not named keep what the sidecar holds for them.
struct SidecarChanges {
    SidecarImage image;
    std::map<ListId, StringList> lists;
    std::map<int, std::string> descriptions;
    std::optional<Georeference> georeference;
    std::vector<std::string> history;          // to be added
    std::shared_ptr<const Codebook> codebook;  // null: as it was
    StoredLayers layers;                       // new ones and changed ones
    StoredLayers unchangedLayers;              // needed only when the sidecar has to be made anew
    std::optional<NewDataSegment> dataSegment;
};

/// What a sidecar holds; nothing when there is none. A file that cannot be used leaves a reason in `why`. A sidecar
/// that was interrupted in its first commit counts as none. Takes no write lock and makes no file, except that an
/// interrupted later commit is undone first, as anyone must who wants to read.
std::optional<SidecarContent> readSidecar(const std::string& path, std::string& why);

/// Reads one layer into a table, and the commit that stored it. Returns an empty text, or a reason with whatever was
/// read by then in the table.
std::string readStoredLayer(const std::string& path, int segment, EditableTable& table, std::int64_t& revision);

/// Moves bytes between a data segment and a buffer: writing is a transaction of its own. Returns an empty text, or a
/// reason with the segment as it was.
std::string readData(const std::string& path, int segment, const HyperRectangle& rectangle, unsigned char* to);
std::string writeData(const std::string& path, int segment, const HyperRectangle& rectangle, const unsigned char* from);

/// Takes changes into a content that lies in no file.
void keepInMemory(const SidecarChanges& changes, SidecarContent& content);

/// True when a file begins as the databases of this host do.
bool looksLikeSidecar(const std::string& path);

/// Stores changes in one transaction, making the sidecar when there is none. `content` is what this process knows of
/// the sidecar, and afterwards what it holds, commits of other processes included. A sidecar that has vanished is made
/// anew from all that is known. Returns an empty text, or the reason with sidecar and `content` as they were.
std::string commitSidecar(const std::string& path, const SidecarChanges& changes, SidecarContent& content);

}  // namespace kshost
