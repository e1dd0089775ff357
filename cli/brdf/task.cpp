#include "brdf/task.hpp"

#include <cstdio>
#include <numeric>
#include <vector>

#include <fcntl.h>
#include <kslib.h>
#include <unistd.h>

#include <kshost_app.h>

#include "app/report.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

/// The task tells of its steps on standard output, which is for data only.
class QuietOutput {
public:
    QuietOutput() {
        std::fflush(stdout);
        kept_ = dup(STDOUT_FILENO);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept_ >= 0 && nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
        if (nowhere >= 0) close(nowhere);
    }
    ~QuietOutput() {
        std::fflush(stdout);
        if (kept_ < 0) return;
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    int kept_ = -1;
};

/// Windows of the task, set for as long as it lives.
class TaskWindows {
public:
    explicit TaskWindows(const BrdfTask& task) {
        KSHostSetWindow("DBIW", task.sampled.data());
        KSHostSetWindow("DBOW", task.corrected.data());
    }
    ~TaskWindows() {
        KSHostSetWindow("DBIW", nullptr);
        KSHostSetWindow("DBOW", nullptr);
    }
    TaskWindows(const TaskWindows&) = delete;
    TaskWindows& operator=(const TaskWindows&) = delete;
};

std::size_t historyLength(const std::string& image) {
    return Entries(KSHostGetHistory(DataSet::open(image).file())).texts().size();
}

}  // namespace

void runBrdfTask(const BrdfTask& task, const std::string& image) {
    const std::size_t before = historyLength(image);
    std::vector<int> channels(static_cast<std::size_t>(task.bands));
    std::iota(channels.begin(), channels.end(), 1);
    {
        const QuietOutput quiet;
        const TaskWindows windows(task);
        BRDFCorrection(image.c_str(), channels.data(), task.bands, task.order);
    }
    requireComplete("the corrected image");
    // The task returns nothing; what it does last is to note each band in the history.
    if (historyLength(image) != before + channels.size()) {
        fail("the correction did not come to its end (see above; if nothing is said there, memory ran out).");
    }
}

}  // namespace kscli
