// Live and peak bytes on the heap (operator new), for programs linked with HeapCount.cpp.
#pragma once

#include <atomic>
#include <cstddef>

namespace heap {
extern std::atomic<size_t> gLiveBytes, gPeakBytes;

// Starts a new peak from what is live now; returns that base.
inline size_t resetPeak() {
    gPeakBytes = gLiveBytes.load();
    return gLiveBytes.load();
}
inline size_t peakSince(size_t base) {
    return gPeakBytes.load() - base;
}
}  // namespace heap
