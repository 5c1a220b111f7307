// Plain heap memory and size-prefixed handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

void* AllocateClearMemory(int64_t size);  // zeroed; none for a size below 1
void* AllocateMemory(int64_t size);       // not cleared; none for a size below 1

// Results of several MiB are written once, right after allocation: on Linux the first touch
// of each 4 KiB page is a page fault, which costs more than the work itself on a big result.
// Large blocks from the two allocators above are therefore aligned and advised for
// transparent huge pages (2 MiB per fault). AdviseHugePages does the same for a buffer that
// was allocated elsewhere (the part of it that covers whole huge pages); ReserveLarge reserves
// a string's capacity that way before it is written. Freed blocks go straight back to the C
// library: the plugin holds no memory between calls.
void AdviseHugePages(void* p, size_t n);
void ReserveLarge(std::string& s, size_t capacity);
// A string of `size` zero bytes, reserved as above.
std::string NewLargeString(size_t size);
// Reserves a vector's capacity the same way.
template <typename T>
void ReserveLarge(std::vector<T>& v, size_t capacity) {
    const bool fresh = v.capacity() < capacity;
    v.reserve(capacity);
    if (fresh) AdviseHugePages(v.data(), v.capacity() * sizeof(T));
}
void FreeMemoryNow(void* p);

// A result written through a pointer into a block from AllocateMemory: unlike a std::string
// made long enough first, its bytes are not zeroed before they are written. The writer sets
// the size it used (at most the capacity asked for).
class RawBytes {
  public:
    RawBytes() = default;
    explicit RawBytes(size_t capacity);  // std::bad_alloc when it cannot be had
    char* data() { return block_.get(); }
    size_t size() const { return size_; }
    void setSize(size_t size) { size_ = size; }
    std::string_view view() const { return {block_.get(), size_}; }
    std::string str() const { return std::string(view()); }
    friend bool operator==(const RawBytes& a, std::string_view b) { return a.view() == b; }
    template <typename Stream>
    friend Stream& operator<<(Stream& out, const RawBytes& b) {
        return out << b.view();
    }

  private:
    struct Free {
        void operator()(char* p) const { FreeMemoryNow(p); }
    };
    std::unique_ptr<char, Free> block_;
    size_t size_ = 0;
};

