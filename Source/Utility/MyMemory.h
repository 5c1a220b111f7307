// Plain heap memory and size-prefixed handles.
#pragma once

#include <cstdint>

void* AllocateClearMemory(int64_t size);  // zeroed; none for a size below 1
void FreeMemoryNow(void* p);
void ClearMemory(void* p, int64_t n);

// A handle is one zeroed block: 8 bytes of usable size, then the usable memory.
typedef void* MemoryHandle;
MemoryHandle allocateHandle(int64_t size);  // none for a negative size
int64_t getHandleSize(MemoryHandle h);      // 0 for none
void* lockHandle(MemoryHandle h);           // the usable memory; none for none
void unlockHandle(MemoryHandle h);
void freeHandle(MemoryHandle h);
// A negative size frees the handle and gives none; on failure gives none and h stays valid.
MemoryHandle resizeHandle(MemoryHandle h, int64_t size);
