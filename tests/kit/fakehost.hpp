// A host database in memory that remembers what was asked of it. It implements the whole C boundary, records every call
// and report in order, fails or abandons the calls that a test names, and knows what was left open.
#pragma once

#include <array>
#include <csetjmp>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kshost.h"

namespace kit {

struct Call {
    std::string name;
    std::string arguments;  // as printed, joined with ", "
    bool operator==(const Call& other) const { return name == other.name && arguments == other.arguments; }
};
std::ostream& operator<<(std::ostream& out, const Call& call);

/// One report or one debug message.
struct Report {
    bool debug;
    int code;      // 0 for debug output
    int severity;  // 0 for debug output
    std::string format;
    std::string label;
    std::string text;
    bool operator==(const Report& other) const;
};
std::ostream& operator<<(std::ostream& out, const Report& report);
using Reports = std::vector<Report>;

struct FakeChannel {
    int type = 4;
    std::vector<float> samples;  // row by row
    std::string description;
};

struct FakeSegment {
    std::string name;
    std::string description;
    int type = 0;
    char status = 'A';  // what IDBSegInfoIO says of it
    std::vector<unsigned char> bytes;
};

struct FakeVQ {
    int pixels = 0;
    int lines = 0;
    std::vector<int> channels;
    std::vector<int> otherChannels;
    int codeVectors = 0;
    int dataType = 4;
    int spare = 0;
    int bitsPerIndex = 8;
    std::vector<unsigned char> codebook;
    std::vector<std::uint16_t> indexes;
};

struct FakeShape {
    std::map<int, double> numbers;
    std::map<int, std::string> texts;
    std::set<int> nullTexts;  // fields whose text the host cannot give
};

using FakeFields = std::vector<std::pair<std::string, int>>;  // name, type

struct FakeLayer : HostLayer {
    std::string name;
    int type = 3;  // what GDBLayer2Type says: that of the file, unless a test sets another
    FakeFields fields;
    std::map<int, std::string> formats;
    std::vector<FakeShape> shapes;
    bool unreadable = false;  // GDBGetLayer fails
};

/// What is "on disk" under a name.
struct FakeFile {
    std::string name;
    int type = 3;  // 60: in memory, gone with its last handle
    int width = 0;
    int height = 0;
    std::vector<FakeChannel> channels;
    std::map<std::pair<int, int>, std::vector<std::string>> lists;  // by level and number
    std::vector<std::string> history;
    std::optional<FakeVQ> vq;
    std::map<int, FakeSegment> segments;
    std::map<int, std::unique_ptr<FakeLayer>> layers;
    std::deque<std::string> handedOut;  // texts that callers may still hold

    float& sample(int channel, int x, int y);
    /// Sets an entry of a level's list, as if it had been stored earlier.
    void set(int level, int number, const std::string& key, const std::string& value);
    /// The value that is stored, or a text that no test stores.
    std::string get(int level, int number, const std::string& key) const;
};

}  // namespace kit

struct HostFile {
    kit::FakeFile* file;
    bool writable;
    int references;
    std::string name;  // what fp2filename says of it
};

namespace kit {

/// A return point that a caller has marked.
struct Trap {
    jmp_buf buffer;
};

class FakeHost {
public:
    std::vector<Call> calls;
    Reports reports;
    std::vector<std::string> misuse;  // calls on dead handles, wrong channels and the like
    int memory = 64 << 20;
    int memoryFlag = 1;
    std::map<std::string, std::array<int, 4>> windows;         // task parameters
    std::map<int, int> fieldLimits;                            // most fields of a layer, by file type
    std::vector<std::pair<std::string, unsigned>> layerFlags;  // the layer's flags at each call that changes a shape
    std::function<void(const Call&)> whenCalled;               // what else happens at the moment of a call

    /// A file that exists; channel types as the boundary numbers them, samples all 0.
    FakeFile& addFile(const std::string& name, int width, int height, const std::vector<int>& channelTypes);
    bool exists(const std::string& name) const { return files_.count(name) != 0; }
    FakeFile& file(const std::string& name);
    /// A handle without a recorded call.
    HostFile* open(const std::string& name, bool writable = false);
    /// A handle on a new file in memory, without a recorded call.
    HostFile* openMemoryFile();
    /// A layer in a file, without a recorded call; it is dead when the handle closes.
    FakeLayer& addLayer(HostFile* fp, const std::string& name, const FakeFields& fields);
    /// A handle of a channel of a cube: its name has the channel behind a colon.
    HostFile* openChannel(const std::string& name, int channel);

    /// Makes the nth call of a name from now on fail; under an armed trap it abandons the caller.
    void failCall(const std::string& name, int nth = 1);
    /// The same for a call that has to be made under a trap.
    void jumpFromCall(const std::string& name, int nth = 1);

    std::vector<std::string> callNames() const;
    int count(const std::string& name) const;
    /// The calls of the given names in order, each as "Name(arguments)".
    std::vector<std::string> callsOf(const std::set<std::string>& names) const;
    /// The arguments of the only call of a name.
    std::string argumentsOf(const std::string& name) const;
    void forget();  // calls and reports so far

    int liveHandles() const { return static_cast<int>(handles_.size()); }
    int references() const;
    /// A handle that is still open, or null.
    HostFile* onlyHandle() const { return handles_.empty() ? nullptr : *handles_.begin(); }
    int liveLists() const { return static_cast<int>(lists_.size()); }
    int liveCubes() const { return static_cast<int>(cubeLists_.size()); }
    int armedTraps() const { return static_cast<int>(traps_.size()); }

    // For the boundary functions.
    bool enter(const char* name, const std::string& arguments);
    FakeFile* fileOf(HostFile* fp, const char* caller);
    FakeChannel* channelOf(HostFile* fp, int channel, const char* caller);
    HostFile* addHandle(FakeFile& file, bool writable);
    void dropReference(HostFile* fp);
    bool isLive(HostFile* fp) const { return handles_.count(fp) != 0; }
    FakeLayer* layerOf(HostLayer* layer, const char* caller);
    std::string nameOf(HostFile* fp) const;
    void trackList(HostStringList list) { lists_.insert(list); }
    bool forgetList(HostStringList list) { return lists_.erase(list) != 0; }
    bool isLiveList(HostStringList list) const { return list == nullptr || lists_.count(list) != 0; }
    void trackCube(void* list) { cubeLists_.insert(list); }
    void forgetCube(void* list) { cubeLists_.erase(list); }
    std::vector<std::unique_ptr<Trap>>& traps() { return traps_; }
    std::map<std::string, FakeFile>& files() { return files_; }

private:
    struct Failure {
        int nth;
        bool mustJump;
    };
    std::map<std::string, FakeFile> files_;
    int memoryFiles_ = 0;
    std::vector<std::unique_ptr<FakeLayer>> deadLayers_;  // kept, so that no live one gets the address of a dead one
    std::set<HostFile*> handles_;
    std::set<HostStringList> lists_;
    std::set<void*> cubeLists_;
    std::vector<std::unique_ptr<Trap>> traps_;
    std::multimap<std::string, Failure> failures_;
};

/// The host that the library is linked with.
FakeHost& host();
/// A new host without files; what the old one still held is released.
void resetHost();

/// What a failing boundary function ends with: the jump while a trap is armed, else its failing value.
void abandonIfTrapped();
template <class R>
R failing(R value) {
    abandonIfTrapped();
    return value;
}

}  // namespace kit
