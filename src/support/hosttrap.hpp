// Host calls that may abandon their caller: the host then jumps back to a point that was marked here.
#pragma once

#include <csetjmp>
#include <type_traits>

#include "kshost.h"

namespace ks {

/// The result of a body of host calls, or onJump when the host abandons one of them.
// No object with a destructor may live in this frame or in body's: the host's jump skips them.
template <class R, class Body>
__attribute__((noinline)) R underHostTrap(R onJump, const Body& body) {
    static_assert(std::is_trivially_destructible_v<Body> && std::is_trivially_destructible_v<R>);
    if (IMP_Protect() == nullptr) return body();          // no trap to be had: call unprotected
    if (setjmp(*IMPProtectBuffer()) != 0) return onJump;  // the host took its trap down before it jumped
    const R result = body();
    IMPUnprotect();
    return result;
}

}  // namespace ks
