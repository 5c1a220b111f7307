#include "rbData.h"

#include "REALplugin.h"
#include "rbDebug.h"
#include "rbMemoryBlock.h"

rbData::rbData(REALstring s) {
    if (s == nullptr) return;
    REALLockString(s);
    string = s;
    size_t length = 0;
    data = reinterpret_cast<const uint8_t*>(REALGetStringContents(s, &length));
    size = static_cast<int64_t>(length);
    if (data == nullptr && size != 0) {
        size = 0;
        if (gDebugging) LogMessage("data is NULL, so size fixed to zero.");
    }
}

rbData::rbData(REALmemoryBlock mb, uint64_t offset, uint64_t length) {
    if (mb == nullptr) return;
    REALLockObject(reinterpret_cast<REALobject>(mb));
    memoryBlock = mb;
    // The offset is not subtracted for a whole-block view: callers pass 0 with length 0.
    if (length == 0) length = static_cast<uint64_t>(MyREALMemoryBlockGetSize(mb));
    auto* base = static_cast<const uint8_t*>(MyREALMemoryBlockGetPtr(mb));
    if (base == nullptr) return;
    data = base + offset;
    size = static_cast<int64_t>(length);
}

rbData::~rbData() {
    clear();
}

void rbData::clear() noexcept {
    if (string != nullptr) REALUnlockString(string);
    if (memoryBlock != nullptr) REALUnlockObject(reinterpret_cast<REALobject>(memoryBlock));
    string = nullptr;
    memoryBlock = nullptr;
    data = nullptr;
    size = 0;
}
