// Completing what describes an image that was derived from another: the library stores what its records hold, the host
// knows the rest, in full precision.
#pragma once

#include <string>

#include "image/copyplan.hpp"
#include "image/dataset.hpp"

namespace kscli {

/// Completes the metadata of an image through the handle that made it: only as long as that is open does a GeoTIFF take
/// in what other programs are to see.
class Completion {
public:
    explicit Completion(HostFile* file) : file_(file) {}

    HostFile* file() const { return file_; }
    /// File-level entries, in this order, before those that the library stored.
    void addFileEntries(const Items& wanted);
    /// Entries, descriptions and no-data values of the plan's bands for channels 1, 2, ...
    void addBands(const DataSet& source, const CopyPlan& plan);
    /// Where on the ground the plan's part of the source lies.
    void addPlace(const DataSet& source, const CopyPlan& plan);
    /// The source's history, and how this image was made of it.
    void addHistory(const DataSet& source, const std::string& line);

private:
    HostFile* file_;
};

/// All of that, for a copy of a source.
void completeCopy(const DataSet& source, const CopyPlan& plan, HostFile* file, const std::string& historyLine);

/// The plan of a copy of some bands, whole and at level 0.
CopyPlan planWholeCopy(const DataSet& source, const std::vector<int>& bands, int sampleType);

/// Refuses an output that is the source itself, or an image name that needs the header of the source.
void refuseSourceFiles(const DataSet& source, const std::string& input, const std::string& output);
/// Refuses an output of another kind that is the image, its header or its sidecar.
void refuseImageFiles(const DataSet& image, const std::string& input, const std::string& output);

}  // namespace kscli
