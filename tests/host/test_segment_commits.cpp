// Making a data segment and writing to one, killed or failing at every step of the way: all of it is stored, or
// nothing.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <tuple>

#include "faultvfs.hpp"
#include "segmentkit.hpp"

using namespace hosttest;

/// What a child or a failing call does to a file, and how to tell whether it has been done.
struct Change {
    const char* name;
    std::function<void(HostFile*)> prepare;
    std::function<bool(HostFile*)> apply;
    std::function<char(HostFile*)> state;  // 'o' as before, 'n' as after, '?' anything else
};

namespace {

// Much more than the 2 MB that SQLite keeps of a transaction before it writes into the file.
constexpr std::int64_t kWide = 12 * kStoredPage;

char stateOf(const Bytes& found, const Bytes& before, const Bytes& after) {
    return found == after ? 'n' : found == before ? 'o' : '?';
}

Bytes striped(bool written) {
    Bytes bytes(kWide, 'o');
    for (std::size_t i = 3000; written && i < bytes.size(); i += 100000) bytes[i] = 'n';
    return bytes;
}

std::vector<Change> changes() {
    return {{"Write",
             [](HostFile* fp) {
                 tableSegment(fp, kWide);
                 writeBytes(fp, 1, kWide, 0, striped(false));
             },
             [](HostFile* fp) {
                 // One byte of nearly each page, so that all of them are changed.
                 const Rectangle r = {{kWide}, 1, {3000}, {(kWide - 3001) / 100000 + 1}, {100000}, {}, 0, 1000};
                 Bytes buffer(1000, 'n');
                 return move(fp, kWrite, 1, r, buffer.data(), nullptr) == 1;
             },
             [](HostFile* fp) { return stateOf(bytesOf(fp, 1, kWide), striped(false), striped(true)); }},
            {"FirstSegment", [](HostFile* fp) { setList(fp, 1, -1, "Key", "kept"); },
             [](HostFile* fp) { return tableSegment(fp, 960) == 1; },
             [](HostFile* fp) {
                 const char* kept = GDBFetchMetaDataEntry(fp, 1, -1, "Key");
                 if (kept == nullptr || std::string(kept) != "kept") return '?';
                 const std::string info = segmentInfo(fp, 1);
                 if (info == "E0") return 'o';
                 return info == "A180" && bytesOf(fp, 1, 960) == Bytes(960, 0) ? 'n' : '?';
             }},
            {"LaterSegment",
             [](HostFile* fp) {
                 tableSegment(fp, kStoredPage);
                 writeBytes(fp, 1, kStoredPage, 0, Bytes(kStoredPage, 'k'));
             },
             [](HostFile* fp) { return tableSegment(fp, 960) == 2; },
             [](HostFile* fp) {
                 if (bytesOf(fp, 1, kStoredPage) != Bytes(kStoredPage, 'k')) return '?';
                 const std::string info = segmentInfo(fp, 2);
                 if (info == "E0") return 'o';
                 return info == "A180" && bytesOf(fp, 2, 960) == Bytes(960, 0) ? 'n' : '?';
             }}};
}

}  // namespace

class EveryStep : public SegmentTest, public testing::WithParamInterface<std::tuple<std::size_t, Fault, bool>> {
protected:
    static constexpr int kMostSteps = 700;

    /// What a killed process leaves does not depend on the disk, and thousands of commits need not wait for one.
    EveryStep() : SegmentTest(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path()) {}

    void SetUp() override {
        SegmentTest::SetUp();
        change = changes()[std::get<0>(GetParam())];
        HostFile* fp = newFile(std::get<2>(GetParam()));
        change.prepare(fp);
        GDBClose(fp);
        good = contentsOf(store);
        ASSERT_EQ(stateNow(), 'o');
    }
    void restore() const {
        unlink(store.c_str());
        hosttest::write(store, good);
        unlink((store + "-journal").c_str());
    }
    char stateNow() {
        HostFile* fp = open();
        if (fp == nullptr) return '?';
        const char found = change.state(fp);
        GDBClose(fp);
        return found;
    }
    Fault fault() const { return std::get<1>(GetParam()); }

    Change change;
    std::string good;
};

std::string stepName(const testing::TestParamInfo<std::tuple<std::size_t, Fault, bool>>& test) {
    const char* const faults[] = {"None", "KilledBefore", "KilledAfter", "Torn", "FailingOnce", "FailingOn"};
    return changes()[std::get<0>(test.param)].name + std::string(faults[static_cast<int>(std::get<1>(test.param))]) +
           (std::get<2>(test.param) ? "BesideAnImage" : "Native");
}

using KilledAtEveryStep = EveryStep;

TEST_P(KilledAtEveryStep, LeavesTheStateBeforeOrAfter) {
    int kills = 0;
    int step = 1;
    for (; step < kMostSteps; ++step) {
        restore();
        const int status = inChild([&] {
            HostFile* fp = open("r+");
            const FaultVfs faults(fault(), step);
            return change.apply(fp) ? 0 : 1;
        });
        if (WIFEXITED(status)) {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(stateNow(), 'n');
            break;
        }
        ASSERT_EQ(WTERMSIG(status), SIGKILL);
        ++kills;
        const char state = stateNow();
        ASSERT_NE(state, '?') << step << " " << allReports();
        if (state == 'n' || step % 4 != 0) continue;
        HostFile* fp = open("r+");
        EXPECT_TRUE(change.apply(fp)) << "the next writer is not in the way of anything";
        GDBClose(fp);
        ASSERT_EQ(stateNow(), 'n') << step;
    }
    EXPECT_GT(kills, 8);
    EXPECT_LT(step, kMostSteps);
    expectNoReports();
}

using FailedAtEveryStep = EveryStep;

TEST_P(FailedAtEveryStep, IsReportedLeavesTheStateBeforeAndCanBeRepeated) {
    int failures = 0;
    int step = 1;
    for (; step < kMostSteps; ++step) {
        restore();
        HostFile* fp = open("r+");
        bool done = false;
        bool reached = false;
        {
            const FaultVfs faults(fault(), step);
            done = change.apply(fp);
            reached = faults.reached();
        }
        if (!done) {
            ++failures;
            expectReport("no room to write");
            ASSERT_EQ(change.state(fp), 'o') << step;
            EXPECT_TRUE(change.apply(fp)) << step;
        }
        EXPECT_EQ(allReports(), "");
        ASSERT_EQ(change.state(fp), 'n') << step;
        GDBClose(fp);
        ASSERT_EQ(stateNow(), 'n') << step;
        if (!reached) break;
    }
    EXPECT_GT(failures, 8);
    EXPECT_LT(step, kMostSteps);
}

INSTANTIATE_TEST_SUITE_P(Kills, KilledAtEveryStep,
                         testing::Combine(testing::Values(0U, 1U, 2U),
                                          testing::Values(Fault::kKillBefore, Fault::kKillAfter, Fault::kKillTorn),
                                          testing::Values(false)),
                         stepName);
INSTANTIATE_TEST_SUITE_P(KillsBesideAnImage, KilledAtEveryStep,
                         testing::Combine(testing::Values(1U), testing::Values(Fault::kKillAfter, Fault::kKillTorn),
                                          testing::Values(true)),
                         stepName);
INSTANTIATE_TEST_SUITE_P(Failures, FailedAtEveryStep,
                         testing::Combine(testing::Values(0U, 1U, 2U),
                                          testing::Values(Fault::kFailOnce, Fault::kFailFromHere),
                                          testing::Values(false)),
                         stepName);
INSTANTIATE_TEST_SUITE_P(FailuresBesideAnImage, FailedAtEveryStep,
                         testing::Combine(testing::Values(1U), testing::Values(Fault::kFailFromHere),
                                          testing::Values(true)),
                         stepName);
