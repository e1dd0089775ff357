// Look-up tables and the file in the host in memory that keeps them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "fixture.hpp"
#include "lookuptables.hpp"

namespace kit {

/// A file of segments, open for writing by the test until it ends.
struct TableFileTest : LibraryTest {
    HostFile* file = nullptr;

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("tables.ks", 0, 0, {});
        file = host().open("tables.ks", true);
    }
    void TearDown() override {
        closeFile();
        LibraryTest::TearDown();
    }
    /// Gives the test's own reference back.
    void closeFile() {
        if (file != nullptr && host().isLive(file)) GDBClose(file);
        file = nullptr;
    }
    static FakeFile& stored() { return host().file("tables.ks"); }
    static FakeSegment& addSegment(int number, std::size_t bytes = 0, int type = kTableSegment) {
        FakeSegment& segment = stored().segments[number];
        segment.type = type;
        segment.bytes.assign(bytes, 0);
        return segment;
    }
    /// Keeps a table in a segment of its own, with room for its elements.
    void place(const Table& table, int number) const {
        std::int64_t elements = 0;
        ASSERT_EQ(KSLUTGetNumElems(table.get(), &elements), kOk);
        addSegment(number, static_cast<std::size_t>(elements * table->nElementSize));
        ASSERT_EQ(KSLUTSetFileInfo(table.get(), file, number), kOk);
        host().forget();
    }
    /// The metadata of a segment, entry by entry.
    static Names entries(int number) { return stored().lists[{kTableSegment, number}]; }
    static void setEntry(int number, const std::string& key, const std::string& value) {
        stored().set(kTableSegment, number, key, value);
    }
    static void setEntries(int number, const std::vector<std::pair<std::string, std::string>>& entries) {
        for (const auto& entry : entries) setEntry(number, entry.first, entry.second);
    }
    static std::string entry(int number, const std::string& key) { return stored().get(kTableSegment, number, key); }
};

/// The calls by which a caller guards the work of a host between them.
inline Names guarded(const Names& calls) {
    Names all = {"IMP_Protect()", "IMPProtectBuffer()"};
    all.insert(all.end(), calls.begin(), calls.end());
    all.emplace_back("IMPUnprotect()");
    return all;
}

/// The calls so far from the moment that a trap is asked for, each as "Name(arguments)".
inline Names callsFromTrap() {
    Names found;
    for (const Call& call : host().calls) {
        if (call.name == "IMP_Protect" || !found.empty()) found.push_back(call.name + "(" + call.arguments + ")");
    }
    return found;
}

}  // namespace kit
