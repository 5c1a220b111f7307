#include "stringcalc.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

const uint8_t* bytesOf(std::string_view s) {
    return reinterpret_cast<const uint8_t*>(s.data());
}

struct AndOp {
    static V apply(V a, V b) { return S::and_(a, b); }
    static uint8_t apply(uint8_t a, uint8_t b) { return a & b; }
};
struct OrOp {
    static V apply(V a, V b) { return S::or_(a, b); }
    static uint8_t apply(uint8_t a, uint8_t b) { return a | b; }
};
struct XorOp {
    static V apply(V a, V b) { return S::xor_(a, b); }
    static uint8_t apply(uint8_t a, uint8_t b) { return a ^ b; }
};

// out[j] = a[j] op m[j] (then ^ low byte of index0 + j when indexed), 16 bytes at a time.
// Returns the OR of the bytes written: the result's ASCII test comes free with the pass, where
// a second pass over a big result that is all ASCII (any AND with a mask below 0x80) costs a
// third of the whole call.
template <typename Op, bool kIndexed>
uint8_t combine(const uint8_t* a, const uint8_t* m, size_t n, uint8_t* out, size_t index0) {
    static constexpr uint8_t kLanes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    V index = S::add8(S::splat8(uint8_t(index0)), S::load(kLanes));
    const V step = S::splat8(16);
    V written = S::zero();
    size_t j = 0;
    for (; j + 16 <= n; j += 16) {
        V r = Op::apply(S::load(a + j), S::load(m + j));
        if constexpr (kIndexed) {
            r = S::xor_(r, index);
            index = S::add8(index, step);
        }
        written = S::or_(written, r);
        S::store(out + j, r);
    }
    uint8_t any = S::any(written) ? 0x80 : 0;
    for (; j < n; ++j) {
        uint8_t r = Op::apply(a[j], m[j]);
        if constexpr (kIndexed) r ^= uint8_t(index0 + j);
        out[j] = r;
        any |= r;
    }
    return any;
}

// Walks data in stretches that line up with whole passes over the mask, so each stretch is one
// contiguous combine. For data of 256 bytes or more, masks shorter than 64 bytes are first
// widened to a pattern of whole mask periods at least 64 bytes long (a 1-, 2- or 4-byte mask
// becomes the byte, 16-bit or 32-bit value repeated), which keeps the stretches long enough for
// the vector loop.
template <typename Op, bool kIndexed>
bool applyRepeating(std::string_view data, std::string_view maskBytes, size_t start, uint8_t* out) {
    const uint8_t* mask = bytesOf(maskBytes);
    size_t maskLen = maskBytes.size();
    uint8_t pattern[128];
    // Widening pays off over many stretches; short data walks the mask as it is.
    if (maskLen < 64 && data.size() >= 256) {
        const size_t period = maskLen * ((64 + maskLen - 1) / maskLen);
        for (size_t k = 0, j = start; k < period; ++k, j = j + 1 == maskLen ? 0 : j + 1) {
            pattern[k] = mask[j];
        }
        mask = pattern;
        maskLen = period;
        start = 0;
    }
    const uint8_t* in = bytesOf(data);
    const size_t n = data.size();
    size_t i = 0;
    size_t position = start;
    uint8_t any = 0;
    while (i < n) {
        const size_t len = std::min(maskLen - position, n - i);
        any |= combine<Op, kIndexed>(in + i, mask + position, len, out + i, i);
        i += len;
        position = 0;
    }
    return (any & 0x80) == 0;
}

size_t reducedOffset(int64_t offset, size_t maskLen) {
    int64_t r = offset % int64_t(maskLen);
    return size_t(r < 0 ? r + int64_t(maskLen) : r);
}

}  // namespace

bool maskAND(std::string_view data, std::string_view mask, uint8_t* out) {
    return applyRepeating<AndOp, false>(data, mask, 0, out);
}

bool maskOR(std::string_view data, std::string_view mask, uint8_t* out) {
    return applyRepeating<OrOp, false>(data, mask, 0, out);
}

bool maskXOR(std::string_view data, std::string_view mask, int64_t offset, uint8_t* out) {
    return applyRepeating<XorOp, false>(data, mask, reducedOffset(offset, mask.size()), out);
}

bool maskXORIndexed(std::string_view data, std::string_view mask, int64_t offset, uint8_t* out) {
    return applyRepeating<XorOp, true>(data, mask, reducedOffset(offset, mask.size()), out);
}

std::string concatBytes(std::initializer_list<std::string_view> parts) {
    size_t total = 0;
    for (std::string_view p : parts) total += p.size();
    std::string out;
    ReserveLarge(out, total);
    for (std::string_view p : parts) out.append(p);
    return out;
}

void fillRepeating(std::span<uint8_t> out, std::string_view content) {
    if (content.empty() || (content.size() == 1 && content[0] == '\0') || out.empty()) return;
    size_t filled = std::min(content.size(), out.size());
    memcpy(out.data(), content.data(), filled);
    // Doubling: the filled part is always a whole number of copies until the last cut.
    while (filled < out.size()) {
        const size_t n = std::min(filled, out.size() - filled);
        memcpy(out.data() + filled, out.data(), n);
        filled += n;
    }
}

namespace {

std::atomic<uint32_t> gRandomSeed{1};
std::atomic<uint64_t> gRandomThreads{0};

// glibc's rand() is random_r over 128 bytes of state as srand() prepares them; the same here,
// with the state per thread instead of behind the C library's lock.
struct ThreadRandom {
    random_data data;
    char state[128];
    bool started;
    uint32_t processSeed;
    uint32_t seed;
};
thread_local ThreadRandom tRandom;

ThreadRandom& threadRandom() {
    ThreadRandom& r = tRandom;
    const uint32_t processSeed = gRandomSeed.load(std::memory_order_relaxed);
    if (!r.started || r.processSeed != processSeed) {
        // The thread's identity: its number among the threads that asked (unique while the
        // process runs) and its handle, mixed with the seed by a SplitMix64 finaliser.
        uint64_t x = (uint64_t(processSeed) << 32) ^ gRandomThreads.fetch_add(1) ^
                     (uint64_t(pthread_self()) << 7);
        x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
        x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
        r.seed = uint32_t(x ^ (x >> 31));
        r.processSeed = processSeed;
        r.data = random_data{};
        initstate_r(r.seed, r.state, sizeof r.state, &r.data);
        r.started = true;
    }
    return r;
}

}  // namespace

void seedRandomBytes(uint32_t seed) {
    gRandomSeed.store(seed, std::memory_order_relaxed);
}

uint32_t threadRandomSeed() {
    return threadRandom().seed;
}

void fillRandomBytes(std::span<uint8_t> out, bool ascii) {
    random_data& data = threadRandom().data;
    int32_t v;
    if (ascii) {
        for (uint8_t& b : out) {
            random_r(&data, &v);
            b = uint8_t(v % 96 + 32);
        }
    } else {
        for (uint8_t& b : out) {
            random_r(&data, &v);
            b = uint8_t(v);
        }
    }
}

}  // namespace kxt

namespace {

struct FreeMemory {
    void operator()(void* p) const { FreeMemoryNow(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeMemory>;

Buffer allocateClear(int64_t size) {
    return Buffer(static_cast<uint8_t*>(AllocateClearMemory(size)));
}

// For results whose every byte is written.
Buffer allocate(int64_t size) {
    return Buffer(static_cast<uint8_t*>(AllocateMemory(size)));
}

// No machine this runs on maps a terabyte, and some allocators abort instead of failing on
// such requests, so larger ones count as failed without being tried.
constexpr int64_t kLargestAllocation = int64_t(1) << 40;

Buffer allocateWithin(int64_t size) {
    return size <= kLargestAllocation ? allocateClear(size) : Buffer();
}

template <typename Apply>
REALstring maskHandler(REALstring a, REALstring b, Apply apply) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        rbData data(a), mask(b);
        if (data.size == 0 || mask.size == 0) return nullptr;
        Buffer buffer = allocate(data.size);
        if (!buffer) return nullptr;
        const bool ascii = apply(data.view(), mask.view(), buffer.get());
        return REALBuildUnicodeString(buffer.get(), data.size, kREALTextEncodingUnknown, ascii);
    });
}

}  // namespace

REALstring StringAND(REALstring a, REALstring b) {
    return maskHandler(a, b, [](std::string_view d, std::string_view m, uint8_t* out) {
        return kxt::maskAND(d, m, out);
    });
}

REALstring StringOR(REALstring a, REALstring b) {
    return maskHandler(a, b, [](std::string_view d, std::string_view m, uint8_t* out) {
        return kxt::maskOR(d, m, out);
    });
}

REALstring StringXOR(REALstring data, REALstring xorMask, RBInteger maskOffset) {
    return maskHandler(data, xorMask, [&](std::string_view d, std::string_view m, uint8_t* out) {
        return kxt::maskXOR(d, m, maskOffset, out);
    });
}

REALstring StringXOR2(REALstring data, REALstring xorMask, RBInteger maskOffset) {
    return maskHandler(data, xorMask, [&](std::string_view d, std::string_view m, uint8_t* out) {
        return kxt::maskXORIndexed(d, m, maskOffset, out);
    });
}

REALstring ConcatBinaryStringsKXT6(REALstring a, REALstring b, REALstring c, REALstring d,
                                   REALstring e, REALstring f) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        rbData pa(a), pb(b), pc(c), pd(d), pe(e), pf(f);
        std::string joined;
        try {
            joined = kxt::concatBytes(
                {pa.view(), pb.view(), pc.view(), pd.view(), pe.view(), pf.view()});
        } catch (const std::bad_alloc&) {
            return nullptr;  // a result too large for memory is nil, not an exception
        }
        return REALBuildUnicodeString(joined, kREALTextEncodingUnknown);
    });
}

REALstring ConcatBinaryStringsKXT5(REALstring a, REALstring b, REALstring c, REALstring d,
                                   REALstring e) {
    return ConcatBinaryStringsKXT6(a, b, c, d, e, nullptr);
}

REALstring ConcatBinaryStringsKXT4(REALstring a, REALstring b, REALstring c, REALstring d) {
    return ConcatBinaryStringsKXT6(a, b, c, d, nullptr, nullptr);
}

REALstring ConcatBinaryStringsKXT3(REALstring a, REALstring b, REALstring c) {
    return ConcatBinaryStringsKXT6(a, b, c, nullptr, nullptr, nullptr);
}

REALstring ConcatBinaryStringsKXT2(REALstring a, REALstring b) {
    return ConcatBinaryStringsKXT6(a, b, nullptr, nullptr, nullptr, nullptr);
}

REALstring CreateStringKXT(RBInteger length, REALstring content) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (length < 1) return nullptr;
        rbData pattern(content);
        const int64_t slack = std::max<int64_t>(pattern.size, 1) + 4;
        Buffer buffer;
        if (length <= INT64_MAX - slack) buffer = allocateWithin(length + slack);
        if (!buffer) {
            RaiseException("OutOfMemoryException", "Failed to allocate memory.",
                           uint32_t(kREALTextEncodingASCII));
            return nullptr;
        }
        if (length <= kMaxHostLength) {
            kxt::fillRepeating(std::span(buffer.get(), size_t(length)), pattern.view());
        }
        // The empty string is nil to Xojo, and nil has no encoding.
        const uint32_t encoding =
            pattern.size > 0 ? REALGetStringEncoding(content) : uint32_t(kREALTextEncodingUnknown);
        return REALBuildUnicodeString(buffer.get(), length, encoding);
    });
}

REALstring RandomBytesStringKXT(RBInteger length, RBBoolean ascii) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (length < 1) return nullptr;
        Buffer buffer = allocateWithin(length);
        if (!buffer) return nullptr;
        if (length <= kMaxHostLength) {
            kxt::fillRandomBytes(std::span(buffer.get(), size_t(length)), ascii);
        }
        return REALBuildUnicodeString(
            buffer.get(), length,
            ascii ? uint32_t(kREALTextEncodingASCII) : uint32_t(kREALTextEncodingUnknown));
    });
}

// Wipes the bytes every holder of the string sees, without a lock: that is its purpose. The
// caller must make sure no other thread is reading the string (README, Threads).
RBBoolean ClearStringContentKXT(REALstring s) {
    return HandlerBoundary<RBBoolean>(false, [&] {
        if (s == nullptr) return false;
        size_t size = 0;
        const char* data = REALGetStringContents(s, &size);
        const int64_t distance =
            int64_t(reinterpret_cast<uintptr_t>(data) - reinterpret_cast<uintptr_t>(s));
        if (gDebugging) {
            LogMessage("mPrivateStringDelta1", distance);
            LogMessage("mySize", int64_t(size));
            LogMessage("myData", static_cast<const void*>(data));
        }
        // Only the inline layout is known to hold the bytes that the host will read again.
        // An empty string is nil to Xojo: there is nothing to wipe.
        if (data == nullptr || size == 0 || distance != int64_t(kREALStringDataOffset)) {
            return false;
        }
        memset(const_cast<char*>(data), 0, size);
        return true;
    });
}
