// The library's correction of across-track trends as a task that either finished or failed.
#pragma once

#include <array>
#include <string>

namespace kscli {

struct BrdfTask {
    std::array<int, 4> sampled;    // x, y, width, height: where columns are averaged
    std::array<int, 4> corrected;  // where the trend is taken away
    int order = 2;
    int bands = 0;  // the first ones of the image
};

/// Corrects an image in place. Throws a Failure when the task did not come to its end; the image is then of no use.
void runBrdfTask(const BrdfTask& task, const std::string& image);

}  // namespace kscli
