#include "MyMemory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
// Below this, the few faults of a block cost less than the rounding to huge pages.
constexpr size_t kLargeBlock = 2 * kHugePage;

// Aligned to and rounded up to huge pages, advised; released with FreeMemoryNow().
void* allocateLarge(size_t size) {
    const size_t rounded = (size + kHugePage - 1) / kHugePage * kHugePage;
    void* block = nullptr;
    if (posix_memalign(&block, kHugePage, rounded) != 0) return nullptr;
    madvise(block, rounded, MADV_HUGEPAGE);  // advice only: failure changes nothing
    return block;
}

}  // namespace

void* AllocateClearMemory(int64_t size) {
    if (size < 1) return nullptr;
    if (static_cast<uint64_t>(size) < kLargeBlock) return calloc(1, static_cast<size_t>(size));
    void* block = allocateLarge(static_cast<size_t>(size));
    if (block != nullptr) memset(block, 0, static_cast<size_t>(size));
    return block;
}

void* AllocateMemory(int64_t size) {
    if (size < 1) return nullptr;
    if (static_cast<uint64_t>(size) < kLargeBlock) return malloc(static_cast<size_t>(size));
    return allocateLarge(static_cast<size_t>(size));
}

void AdviseHugePages(void* p, size_t n) {
    if (p == nullptr || n < kLargeBlock) return;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHugePage - 1) & ~(kHugePage - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(p) + n) & ~(kHugePage - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

void ReserveLarge(std::string& s, size_t capacity) {
    const bool fresh = s.capacity() < capacity;
    s.reserve(capacity);
    if (fresh) AdviseHugePages(s.data(), s.capacity());
}

std::string NewLargeString(size_t size) {
    std::string s;
    ReserveLarge(s, size);
    s.resize(size);
    return s;
}

void FreeMemoryNow(void* p) {
    free(p);
}

RawBytes::RawBytes(size_t capacity) {
    if (capacity > size_t(INT64_MAX)) throw std::bad_alloc();
    block_.reset(static_cast<char*>(AllocateMemory(std::max<int64_t>(int64_t(capacity), 1))));
    if (!block_) throw std::bad_alloc();
}

