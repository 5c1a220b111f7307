#include "MyMemory.h"

#include <cstdlib>
#include <cstring>

void* AllocateClearMemory(int64_t size) {
    if (size < 1) return nullptr;
    return calloc(1, static_cast<size_t>(size));
}

void FreeMemoryNow(void* p) {
    free(p);
}

void ClearMemory(void* p, int64_t n) {
    if (p != nullptr && n > 0) memset(p, 0, static_cast<size_t>(n));
}

namespace {
constexpr size_t kHeader = sizeof(int64_t);
}

MemoryHandle allocateHandle(int64_t size) {
    if (size < 0) return nullptr;
    auto* block = static_cast<int64_t*>(calloc(1, kHeader + static_cast<size_t>(size)));
    if (block != nullptr) *block = size;
    return block;
}

int64_t getHandleSize(MemoryHandle h) {
    return h ? *static_cast<int64_t*>(h) : 0;
}

void* lockHandle(MemoryHandle h) {
    return h ? static_cast<char*>(h) + kHeader : nullptr;
}

void unlockHandle(MemoryHandle) {}

void freeHandle(MemoryHandle h) {
    free(h);
}

MemoryHandle resizeHandle(MemoryHandle h, int64_t size) {
    if (size < 0) {
        freeHandle(h);
        return nullptr;
    }
    void* moved = realloc(h, kHeader + static_cast<size_t>(size));
    if (moved == nullptr) return nullptr;
    *static_cast<int64_t*>(moved) = size;
    return moved;
}
