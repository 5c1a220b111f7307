#include "rbMemoryBlock.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "REALplugin.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbRef.h"

namespace {

struct NewBlockCall {
    int64_t size;
    REALobject block;
};

void constructBlock(void* arg) {
    auto* call = static_cast<NewBlockCall*>(arg);
    HostObject block(REALnewInstance("MemoryBlock"));
    if (!block) return;
    using Info = kxt::abi::ObjectMethodInfo<kxt::abi::ObjectMethod::MemoryBlockConstructor>;
    auto constructor =
        reinterpret_cast<Info::Function>(REALLoadObjectMethod(block.get(), Info::declaration));
    if (constructor == nullptr) return;
    constructor(block.get(), call->size);
    // A block smaller than asked for is given back (by the holder).
    if (REALMemoryBlockGetSize(reinterpret_cast<REALmemoryBlock>(block.get())) >= call->size) {
        call->block = block.release();
    }
}

void raiseBlockAllocationFailure(int64_t length) {
    char message[201];
    snprintf(message, sizeof(message), "Failed to allocate a memoryblock with %lld bytes in size.",
             static_cast<long long>(length));
    RaiseException("OutOfMemoryException", message, kREALTextEncodingASCII);
}

}  // namespace

REALmemoryBlock MyREALNewMemoryBlock(int64_t size) {
    if (size < 0) return nullptr;
    NewBlockCall call{size, nullptr};
    // An exception the constructor raised is dropped: the caller reports the failure.
    [[maybe_unused]] const HostObject raised(
        REALCallFunctionWithExceptionHandler(constructBlock, &call));
    return reinterpret_cast<REALmemoryBlock>(call.block);
}

void* MyREALMemoryBlockGetPtr(REALmemoryBlock mb) {
    return mb ? REALMemoryBlockGetPtr(mb) : nullptr;
}

int64_t MyREALMemoryBlockGetSize(REALmemoryBlock mb) {
    return mb ? REALMemoryBlockGetSize(mb) : 0;
}

REALmemoryBlock REALBuildMemoryblock(const void* data, int64_t length) {
    if (data == nullptr || length < 1) return nullptr;
    try {
        HostObject block(reinterpret_cast<REALobject>(MyREALNewMemoryBlock(length)));
        void* target = MyREALMemoryBlockGetPtr(reinterpret_cast<REALmemoryBlock>(block.get()));
        if (!block || target == nullptr) {
            block.reset();
            if (gDebugging) LogMessage("Error: Failed to allocate memoryblock", length);
            raiseBlockAllocationFailure(length);
            return nullptr;
        }
        memcpy(target, data, static_cast<size_t>(length));
        return reinterpret_cast<REALmemoryBlock>(block.release());
    } catch (const std::bad_alloc& e) {
        if (gDebugging) LogMessage("Got C++ exception in REALBuildMemoryblock: ", e.what());
        raiseBlockAllocationFailure(length);
        return nullptr;
    }
}
