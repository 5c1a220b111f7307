// The bytes of a text as unsigned values, for loops that classify or index by them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kxt {

inline std::span<const uint8_t> unsignedBytes(std::string_view s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

}  // namespace kxt
