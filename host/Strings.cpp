// Host strings: reference-counted blocks with the bytes inline at a fixed offset, and the
// string services of the resolver.
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "Encodings.h"
#include "HostInternal.h"
#include "HostServices.h"

namespace xhost {

namespace {
char* dataOf(const void* handle) {
    return static_cast<char*>(const_cast<void*>(handle)) + kREALStringDataOffset;
}
StringHeader* headerOf(const void* handle) {
    return static_cast<StringHeader*>(const_cast<void*>(handle));
}
}  // namespace

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kLargeBlock = 2 * kHugePage;

// Large blocks in use (start -> usable size), and freed ones kept for reuse. A program that
// makes one big result after another then maps fresh memory once instead of every time, as
// the allocator already does for blocks below its mapping threshold (32 MiB at most); what is
// kept is bounded and given back when the host goes. Never destroyed themselves: a Host may be
// going away while static objects are destroyed at exit. One lock for the three, taken only
// for large blocks.
std::mutex gLargeLock;
auto& gLargeInUse = *new std::unordered_map<void*, size_t>;
auto& gKept = *new std::vector<std::pair<void*, size_t>>;
size_t gKeptBytes = 0;
constexpr size_t kKeepBlocks = 6;
constexpr size_t kKeepBytes = size_t(768) << 20;

void* takeKept(size_t rounded) {
    // The smallest kept block that fits without wasting more than the request.
    size_t best = gKept.size();
    for (size_t k = 0; k < gKept.size(); ++k) {
        const size_t size = gKept[k].second;
        if (size >= rounded && size <= 2 * rounded &&
            (best == gKept.size() || size < gKept[best].second)) {
            best = k;
        }
    }
    if (best == gKept.size()) return nullptr;
    auto [block, size] = gKept[best];
    gKept.erase(gKept.begin() + long(best));
    gKeptBytes -= size;
    gLargeInUse[block] = size;
    return block;
}

}  // namespace

void* allocateBlock(size_t bytes, bool zeroed) {
    if (bytes < kLargeBlock) return zeroed ? std::calloc(bytes, 1) : std::malloc(bytes);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* block;
    {
        std::lock_guard<std::mutex> lock(gLargeLock);
        block = takeKept(rounded);
    }
    if (block == nullptr) {
        if (posix_memalign(&block, kHugePage, rounded) != 0) return nullptr;
        madvise(block, rounded, MADV_HUGEPAGE);  // advice only: failure changes nothing
        std::lock_guard<std::mutex> lock(gLargeLock);
        gLargeInUse[block] = rounded;
    }
    if (zeroed) std::memset(block, 0, bytes);
    return block;
}

void freeBlock(void* block) {
    // Large blocks are aligned to huge pages; anything else goes back without the lock.
    if (reinterpret_cast<uintptr_t>(block) % kHugePage != 0) {
        std::free(block);
        return;
    }
    std::unique_lock<std::mutex> lock(gLargeLock);
    auto it = gLargeInUse.find(block);
    if (it == gLargeInUse.end()) {
        lock.unlock();
        std::free(block);
        return;
    }
    const size_t size = it->second;
    gLargeInUse.erase(it);
    if (gKept.size() < kKeepBlocks && gKeptBytes + size <= kKeepBytes) {
        gKept.emplace_back(block, size);
        gKeptBytes += size;
    } else {
        lock.unlock();
        std::free(block);
    }
}

void releaseKeptBlocks() {
    std::lock_guard<std::mutex> lock(gLargeLock);
    for (auto [block, size] : gKept) std::free(block);
    gKept.clear();
    gKeptBytes = 0;
}

void misuse(Host::State& st, std::string message) {
    std::lock_guard<std::mutex> lock(st.misusesLock);
    if (st.misuses.size() < 1000) st.misuses.push_back(std::move(message));
}

REALstring newString(Host::State& st, const char* data, size_t length, uint32_t encoding) {
    void* block = allocateBlock(kREALStringDataOffset + length + 1, false);
    if (block == nullptr) return nullptr;
    std::memset(block, 0, kREALStringDataOffset);
    new (block) StringHeader{kStringMagic, encoding, 1, int64_t(length),
                             st.nextSerial.fetch_add(1, std::memory_order_relaxed)};
    if (length > 0) std::memcpy(dataOf(block), data, length);
    dataOf(block)[length] = '\0';
    std::lock_guard<std::mutex> lock(st.stringsLock);
    try {
        st.strings.insert(block);
    } catch (...) {
        freeBlock(block);  // a failed service leaves nothing behind
        throw;
    }
    return static_cast<REALstring>(block);
}

StringHeader* liveString(Host::State& st, REALstring s) {
    if (s == nullptr) return nullptr;
    bool live = st.strings.seen(s);
    if (!live) {
        std::lock_guard<std::mutex> lock(st.stringsLock);
        live = st.strings.count(s) != 0;
    }
    if (!live || headerOf(s)->magic != kStringMagic) {
        char buf[80];
        std::snprintf(buf, sizeof buf, "unknown or released string handle %p", (void*)s);
        misuse(st, buf);
        return nullptr;
    }
    return headerOf(s);
}

std::string_view stringBytes(REALstring s) {
    return {dataOf(s), static_cast<size_t>(headerOf(s)->length)};
}

void lockString(Host::State& st, REALstring s) {
    if (StringHeader* h = liveString(st, s)) h->refs.fetch_add(1, std::memory_order_relaxed);
}

void unlockString(Host::State& st, REALstring s) {
    StringHeader* h = liveString(st, s);
    if (h == nullptr) return;
    if (h->refs.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
    h->magic = kDeadMagic;
    {
        std::lock_guard<std::mutex> lock(st.stringsLock);
        st.strings.erase(s);
    }
    freeBlock(s);
}

std::string_view utf8Of(Host::State& st, REALstring s, std::string& storage) {
    StringHeader* h = liveString(st, s);
    if (h == nullptr) return {};
    const std::string_view bytes = stringBytes(s);
    // Bytes that are UTF-8 already, or stand as they are when they are not (ASCII that is not
    // ASCII, bytes without an encoding), are their own UTF-8 form: no copy.
    if (h->encoding == kREALTextEncodingUTF8 || h->encoding == kREALTextEncodingASCII ||
        h->encoding == kREALTextEncodingUnknown) {
        return bytes;
    }
    auto converted = encodings::convert(bytes, h->encoding, kREALTextEncodingUTF8);
    if (!converted) return bytes;
    storage = std::move(*converted);
    return storage;
}

std::string stringAsUTF8(Host::State& st, REALstring s) {
    std::string storage;
    const std::string_view text = utf8Of(st, s, storage);
    return text.data() == storage.data() ? std::move(storage) : std::string(text);
}

namespace services {

REALstring buildString(const char* data, int32_t length) {
    return buildStringWithEncoding(data, length, kREALTextEncodingUnknown);
}

REALstring buildStringWithEncoding(const char* data, int32_t length, uint32_t encoding) {
    Host::State* st = currentState();
    if (st == nullptr || length < 0 || (data == nullptr && length > 0)) return nullptr;
    return newString(*st, data, static_cast<size_t>(length), encoding);
}

void lockStringService(REALstring s) {
    if (Host::State* st = currentState()) lockString(*st, s);
}

void unlockStringService(REALstring s) {
    if (Host::State* st = currentState()) unlockString(*st, s);
}

const char* getCString(REALstring s) {
    Host::State* st = currentState();
    if (st == nullptr || liveString(*st, s) == nullptr) return nullptr;
    return dataOf(s);
}

uint32_t getStringEncoding(REALstring s) {
    Host::State* st = currentState();
    StringHeader* h = st ? liveString(*st, s) : nullptr;
    return h ? h->encoding : kREALTextEncodingUnknown;
}

void setStringEncoding(REALstring s, uint32_t encoding) {
    Host::State* st = currentState();
    if (StringHeader* h = st ? liveString(*st, s) : nullptr) h->encoding = encoding;
}

REALstring convertString(REALstring s, uint32_t encoding) {
    Host::State* st = currentState();
    StringHeader* h = st ? liveString(*st, s) : nullptr;
    if (h == nullptr) return nullptr;
    auto converted = encodings::convert(stringBytes(s), h->encoding, encoding);
    if (!converted) return nullptr;
    return newString(*st, converted->data(), converted->size(), encoding);
}

RBBoolean getStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    Host::State* st = currentState();
    if (st == nullptr || out == nullptr) return false;
    StringHeader* h = liveString(*st, s);
    if (h == nullptr) return false;
    auto converted = encodings::convert(stringBytes(s), h->encoding, encoding);
    if (!converted) return false;
    auto owned = std::make_unique<StringDataRecord>();
    owned->bytes = std::move(*converted);
    {
        std::lock_guard<std::mutex> lock(st->stringDataLock);
        st->stringData.insert(owned.get());
    }
    StringDataRecord* record = owned.release();
    out->data = record->bytes.c_str();
    out->length = record->bytes.size();
    out->encoding = encoding;
    out->private1 = record;
    out->private2 = kObjectMagic;
    return true;
}

void disposeStringData(REALstringData* data) {
    Host::State* st = currentState();
    if (st == nullptr || data == nullptr) return;
    auto* record = static_cast<const StringDataRecord*>(data->private1);
    size_t erased;
    {
        std::lock_guard<std::mutex> lock(st->stringDataLock);
        erased = st->stringData.erase(record);
    }
    if (erased == 0) {
        misuse(*st, "PluginDisposeStringData of a record that is not outstanding");
        return;
    }
    delete record;
    data->data = nullptr;
    data->length = 0;
    data->private1 = nullptr;
    data->private2 = 0;
}

RBInteger compareStrings(REALstring a, REALstring b) {
    Host::State* st = currentState();
    if (st == nullptr) return 0;
    std::string xStorage, yStorage;
    const std::string_view x = a ? utf8Of(*st, a, xStorage) : std::string_view();
    const std::string_view y = b ? utf8Of(*st, b, yStorage) : std::string_view();
    // The order may come back at any magnitude; this one has its low 32 bits zero, so a caller
    // that narrows the result takes every pair of strings for equal.
    return RBInteger(compareTexts(x, y)) * (RBInteger(1) << 32);
}

int32_t compareTexts(std::string_view x, std::string_view y) {
    size_t n = std::min(x.size(), y.size());
    for (size_t i = 0; i < n; ++i) {
        int cx = static_cast<unsigned char>(x[i]), cy = static_cast<unsigned char>(y[i]);
        if (cx >= 'A' && cx <= 'Z') cx += 'a' - 'A';
        if (cy >= 'A' && cy <= 'Z') cy += 'a' - 'A';
        if (cx != cy) return cx < cy ? -1 : 1;
    }
    if (x.size() == y.size()) return 0;
    return x.size() < y.size() ? -1 : 1;
}

RBInteger lenB(REALstring s) {
    Host::State* st = currentState();
    StringHeader* h = st ? liveString(*st, s) : nullptr;
    return h ? h->length : 0;
}

RBInteger len(REALstring s) {
    Host::State* st = currentState();
    StringHeader* h = st ? liveString(*st, s) : nullptr;
    return h ? encodings::characterCount(stringBytes(s), h->encoding) : 0;
}

}  // namespace services
}  // namespace xhost
