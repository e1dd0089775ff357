// Memory that runs out on demand: the library's allocations, and Meschach's vectors.
#pragma once

namespace kit {

/// Refuses the nth allocation of the library from now on (0: none), and only that one.
void refuseAllocation(int nth);
/// Library allocations since refuseAllocation was called.
int allocations();
/// True when the refusal that was asked for has happened.
bool allocationRefused();

/// Makes Meschach's nth v_get from now on run out of memory (0: none): its own error is raised.
void refuseVector(int nth);
/// Vectors asked for since refuseVector was called.
int vectors();

}  // namespace kit
