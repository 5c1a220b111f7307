// Heap accounting for a whole program, so the plugin code's allocations are seen too: replaces
// the global operator new and delete. Linked only into the programs that report heap peaks
// (kept in its own source so the compiler does not inline the replacements into callers).
#include "HeapCount.h"

#include <cstdlib>
#include <new>

namespace heap {
std::atomic<size_t> gLiveBytes{0}, gPeakBytes{0};
}  // namespace heap

void* operator new(size_t size) {
    void* p = std::malloc(size + 16);
    if (!p) throw std::bad_alloc();
    *static_cast<size_t*>(p) = size;
    const size_t live = heap::gLiveBytes += size;
    size_t peak = heap::gPeakBytes.load();
    while (live > peak && !heap::gPeakBytes.compare_exchange_weak(peak, live)) {
    }
    return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (!p) return;
    void* block = static_cast<char*>(p) - 16;
    heap::gLiveBytes -= *static_cast<size_t*>(block);
    std::free(block);
}
void operator delete(void* p, size_t) noexcept {
    operator delete(p);
}
