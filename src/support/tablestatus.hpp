// The table families tell success by 1, which their callers test for.
#pragma once

namespace ks {

inline constexpr int kTableFailed = 0;
inline constexpr int kTableOk = 1;

/// 1 or 0 of a condition.
constexpr int tableStatus(bool isOk) { return isOk ? kTableOk : kTableFailed; }

}  // namespace ks
