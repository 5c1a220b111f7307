// MemoryBlock builders and accessors.
#pragma once

#include <cstdint>

#include "XojoPluginABI.h"

// Copies the bytes into a new MemoryBlock; none for no data or length < 1. Raises
// OutOfMemoryException when the block cannot be made.
REALmemoryBlock REALBuildMemoryblock(const void* data, int64_t length);
REALmemoryBlock MyREALNewMemoryBlock(int64_t size);
void* MyREALMemoryBlockGetPtr(REALmemoryBlock mb);
int64_t MyREALMemoryBlockGetSize(REALmemoryBlock mb);
