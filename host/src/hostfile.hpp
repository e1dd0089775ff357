// What a handle is: a name, a raster of its own and a store that it shares with other handles on the same file.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kshost_app.h"
#include "layer.hpp"
#include "raster.hpp"
#include "store.hpp"

struct HostFile {
    std::string name;     // as it was given
    std::string path;     // of the file behind the name, absolute
    std::string sidecar;  // where its sidecar is or would be, absolute
    bool writable = false;
    bool rasterBroken = false;  // a transfer failed: writes to the raster are refused from then on
    int references = 1;
    std::unique_ptr<kshost::Raster> raster;  // null for a file without an image
    kshost::RasterFacts facts;               // of a file without an image, as far as they are known
    std::shared_ptr<kshost::Store> store;
    int type = KSHOST_TYPE_NATIVE;
    std::map<int, std::unique_ptr<kshost::LayerHandle>> layers;  // those that were asked for, by segment
    // The channels of a vector-quantized cube have handles of their own, which are lent out and live as long as the
    // cube's.
    HostFile* cube = nullptr;  // of such a channel: the file that owns it
    std::vector<std::unique_ptr<HostFile>> lent;
};

namespace kshost {

/// The file behind a live handle, or null after a report naming the caller.
HostFile* live(HostFile* fp, const char* caller);
/// True when the file is open for writing; else a report names the caller.
bool mayWrite(const HostFile& file, const char* caller);
/// True when a window has samples and lies in the image.
bool inside(const RasterFacts& facts, int x, int y, int width, int height);
/// Stores what was gathered for the file and rewrites the header of an image that the host created. Reports on failure.
bool commitFile(HostFile& file);

/// As GDBOpen and GDBClose, without jumping to a trap.
HostFile* openFile(const std::string& name, const char* access);
bool closeFile(HostFile* fp);
/// The cube of a name, or another name of the same file, that is open now; one that is open for writing, if there is.
HostFile* openCubeNamed(const std::string& name);
/// Makes a handle for each of the names, to be lent out by the file.
void makeLentHandles(HostFile& file, const std::vector<std::string>& names);

}  // namespace kshost
