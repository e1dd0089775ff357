// Memory that runs out on demand, for the library and for Meschach, and Meschach calls that fail on demand.
#pragma once

namespace kit {

/// Refuses the nth allocation of the library from now on (0: none), and only that one.
void refuseAllocation(int nth);
/// Library allocations since refuseAllocation was called.
int allocations();
/// True when the refusal that was asked for has happened.
bool allocationRefused();

/// Meschach's functions that can be made to fail.
enum class MatrixCall { kVGet, kIvGet, kMGet, kMLoad, kMSave, kVSub, kVAdd, kMvMlt };

/// Makes Meschach's nth call of a function from now on fail (0: none): its own error is raised.
void refuseMatrixCall(MatrixCall function, int nth);
/// Calls of it since refuseMatrixCall was called.
int matrixCalls(MatrixCall function);
/// Lets every function work again.
void refuseNoMatrixCall();

/// The same for v_get, which runs out of memory.
inline void refuseVector(int nth) { refuseMatrixCall(MatrixCall::kVGet, nth); }
/// Vectors asked for since refuseVector was called.
inline int vectors() { return matrixCalls(MatrixCall::kVGet); }

}  // namespace kit
