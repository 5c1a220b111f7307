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
    call->block = REALnewInstance("MemoryBlock");
    if (call->block == nullptr) return;
    using Info = kxt::abi::ObjectMethodInfo<kxt::abi::ObjectMethod::MemoryBlockConstructor>;
    auto constructor =
        reinterpret_cast<Info::Function>(REALLoadObjectMethod(call->block, Info::declaration));
    bool ok = false;
    if (constructor != nullptr) {
        constructor(call->block, call->size);
        ok = REALMemoryBlockGetSize(reinterpret_cast<REALmemoryBlock>(call->block)) >= call->size;
    }
    if (!ok) {
        REALUnlockObject(call->block);
        call->block = nullptr;
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
        REALmemoryBlock block = MyREALNewMemoryBlock(length);
        void* target = MyREALMemoryBlockGetPtr(block);
        if (block == nullptr || target == nullptr) {
            if (block != nullptr) REALUnlockObject(reinterpret_cast<REALobject>(block));
            if (gDebugging) LogMessage("Error: Failed to allocate memoryblock", length);
            raiseBlockAllocationFailure(length);
            return nullptr;
        }
        memcpy(target, data, static_cast<size_t>(length));
        return block;
    } catch (const std::bad_alloc& e) {
        if (gDebugging) LogMessage("Got C++ exception in REALBuildMemoryblock: ", e.what());
        raiseBlockAllocationFailure(length);
        return nullptr;
    }
}
