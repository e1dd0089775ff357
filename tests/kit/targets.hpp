// Running the vector kernels at every width that the machine has.
#pragma once

#include <hwy/highway.h>
#include <hwy/targets.h>

namespace kit {

/// Calls a body once for each instruction set that the kernels were compiled for and the machine has, with its name.
template <class Body>
void forEachTarget(Body body) {
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(target);
        body(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().DeInit();
    }
}

}  // namespace kit
