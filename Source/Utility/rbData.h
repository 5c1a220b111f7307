// Read-only byte view of a host string or MemoryBlock, holding one reference for its lifetime.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "XojoPluginABI.h"

class rbData {
  public:
    rbData() = default;
    explicit rbData(REALstring s);
    // length 0 means the whole block (offset is then expected to be 0); otherwise trusted.
    rbData(REALmemoryBlock mb, uint64_t offset, uint64_t length);
    ~rbData();
    rbData(const rbData&) = delete;
    rbData& operator=(const rbData&) = delete;

    void clear() noexcept;

    std::string_view view() const {
        return data ? std::string_view(reinterpret_cast<const char*>(data), size_t(size))
                    : std::string_view();
    }
    std::span<const uint8_t> bytes() const {
        return data ? std::span<const uint8_t>(data, size_t(size)) : std::span<const uint8_t>();
    }

    REALstring string = nullptr;
    REALmemoryBlock memoryBlock = nullptr;
    const uint8_t* data = nullptr;
    int64_t size = 0;
};
