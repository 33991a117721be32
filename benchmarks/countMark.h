#pragma once

namespace calcut::bench {

/// Number of no system call. The counting plugin prints its counters when a program calls it; the
/// arguments name the row, the way (0 plain, 1 fast) and the repetitions that begin or have ended.
constexpr long markCall = 99999;

}  // namespace calcut::bench
