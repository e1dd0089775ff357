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
#include "stringlist.hpp"

namespace kshost {

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

/// The store of an image, shared by every handle on the same file in this process.
/// A sidecar that is corrupt or of an unknown version makes the call fail. One of another image (size or channel count
/// differ) is reported and not used when reading, and makes the call fail when `writable`. A changed header is reported
/// and the sidecar holds. What was guessed, converted or ignored in the raster's own metadata is reported as notices.
/// Never creates a file: the sidecar appears with the first commit.
std::shared_ptr<Store> openStore(const std::string& imageName, const RasterFacts& facts, bool writable,
                                 std::string& why);

}  // namespace kshost
