// The emulated host's own bookkeeping: string blocks, objects and the registry. Only the host's
// sources include this; clients use XojoHost.h.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "XojoHost.h"

namespace xhost {

// The header of a string block. The string's bytes follow at exactly kREALStringDataOffset from
// the start of the block (the handle), then one zero byte.
struct StringHeader {
    uint32_t magic;
    uint32_t encoding;
    std::atomic<int64_t> refs;
    int64_t length;
    uint64_t serial;  // creation order, for describeLive
};
static_assert(sizeof(StringHeader) <= kREALStringDataOffset);

constexpr uint32_t kStringMagic = 0x5354524B;  // "KRTS"
constexpr uint32_t kObjectMagic = 0x4A424F4B;  // "KOBJ"
constexpr uint32_t kDeadMagic = 0xDEADBEEF;

enum class PropType { String, Integer, Boolean, Color };

struct PropValue {
    std::string name;
    PropType type;
    int64_t integer = 0;  // Integer, Color (low 32 bits) and Boolean (0 or 1)
    REALstring string = nullptr;
};

enum class ObjectKind { Plain, MemoryBlock, Array, StyledText };

struct Object {
    uint32_t magic = kObjectMagic;
    ObjectKind kind = ObjectKind::Plain;
    std::string className;
    std::atomic<int64_t> refs = 1;
    uint64_t serial = 0;
    std::vector<PropValue> props;
    // MemoryBlock
    char* data = nullptr;
    int64_t size = 0;
    // String array
    std::vector<REALstring> elements;
    // StyledText: the runs it owns (one reference each) and alignment per paragraph index (0
    // past the end). Indexed, not a map: a document sets one per paragraph, millions of them.
    std::vector<Object*> runs;
    std::vector<int64_t> alignments;
    // Paragraph structure, kept up to date while runs are appended so that reading
    // ParagraphCount after each append stays linear; rebuilt after any other change.
    bool paragraphsValid = false;
    std::vector<std::pair<int64_t, int64_t>> paragraphEnds;  // closed paragraphs: start, end
    int64_t characters = 0;
    int64_t openStart = -1;  // first character of the unterminated last paragraph
    bool lastWasCR = false;
    // StyleRun: the styled texts that hold it (their paragraph structure depends on its text)
    std::vector<Object*> owners;
};

struct StringDataRecord {
    uint32_t magic = kObjectMagic;
    std::string bytes;
};

// The live handles of one kind. Every handle a plugin passes is looked up here, so a lookup
// should touch one cache line: open addressing with linear probing over a power-of-two table
// kept at most half full, instead of a node-based set whose bucket and node are two cache
// misses apiece once millions of style runs and strings are live. Null is never a member.
//
// Changes (insert, erase, clear) and the other readers need the owner's lock; `seen` does
// not. Its slots are atomics and a table outgrown stays allocated until clear(), so a lookup
// may run while another thread changes the set: it never finds a handle that is not a member,
// but may miss one that an erase is moving, so a miss is confirmed under the lock.
template <typename T>
class HandleSet {
    struct Table {
        explicit Table(size_t capacity)
            : mask(capacity - 1),
              shift(64 - std::countr_zero(capacity)),
              slots(new std::atomic<T>[capacity]()) {}
        size_t mask;
        int shift;
        std::unique_ptr<std::atomic<T>[]> slots;
        T at(size_t i) const { return slots[i].load(std::memory_order_relaxed); }
        void set(size_t i, T p) { slots[i].store(p, std::memory_order_relaxed); }
        size_t slotOf(T p) const {
            // Fibonacci hashing: the top bits of the product mix every bit of the address.
            return size_t((uint64_t(reinterpret_cast<uintptr_t>(p)) * 0x9E3779B97F4A7C15ull) >>
                          shift);
        }
        size_t find(T p) const {
            size_t i = slotOf(p);
            for (T q = at(i); q != nullptr && q != p; q = at(i)) i = (i + 1) & mask;
            return i;
        }
    };

  public:
    HandleSet() = default;
    HandleSet(const HandleSet&) = delete;
    HandleSet& operator=(const HandleSet&) = delete;

    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    size_t count(T p) const { return seen(p) ? 1 : 0; }
    bool seen(T p) const {
        const Table* t = table_.load(std::memory_order_acquire);
        return p != nullptr && t != nullptr && t->at(t->find(p)) == p;
    }
    void insert(T p) {
        if (p == nullptr) return;
        if (2 * (size_ + 1) > capacity()) grow();
        Table& t = *table_.load(std::memory_order_relaxed);
        size_t i = t.find(p);
        if (t.at(i) == p) return;
        t.set(i, p);
        ++size_;
    }
    size_t erase(T p) {
        if (count(p) == 0) return 0;
        // Backward-shift deletion: later members of the probe run move up into the hole
        // unless their home slot lies cyclically after the hole, so no tombstones build up.
        Table& t = *table_.load(std::memory_order_relaxed);
        size_t hole = t.find(p);
        for (size_t j = (hole + 1) & t.mask; t.at(j) != nullptr; j = (j + 1) & t.mask) {
            const size_t home = t.slotOf(t.at(j));
            const bool stays = hole < j ? (home > hole && home <= j) : (home > hole || home <= j);
            if (stays) continue;
            t.set(hole, t.at(j));
            hole = j;
        }
        t.set(hole, nullptr);
        --size_;
        return 1;
    }
    void clear() {
        tables_.clear();
        table_.store(nullptr, std::memory_order_relaxed);
        size_ = 0;
    }

    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = T;
        const_iterator(const std::atomic<T>* at, const std::atomic<T>* end) : at_(at), end_(end) {
            skip();
        }
        T operator*() const { return at_->load(std::memory_order_relaxed); }
        const_iterator& operator++() {
            ++at_;
            skip();
            return *this;
        }
        bool operator==(const const_iterator& o) const { return at_ == o.at_; }
        bool operator!=(const const_iterator& o) const { return at_ != o.at_; }

      private:
        void skip() {
            while (at_ != end_ && at_->load(std::memory_order_relaxed) == nullptr) ++at_;
        }
        const std::atomic<T>* at_;
        const std::atomic<T>* end_;
    };
    const_iterator begin() const { return {data(), data() + capacity()}; }
    const_iterator end() const { return {data() + capacity(), data() + capacity()}; }

  private:
    size_t capacity() const {
        const Table* t = table_.load(std::memory_order_relaxed);
        return t ? t->mask + 1 : 0;
    }
    const std::atomic<T>* data() const {
        const Table* t = table_.load(std::memory_order_relaxed);
        return t ? t->slots.get() : nullptr;
    }
    // The bigger table is had before anything changes: when it cannot be, the set is intact.
    void grow() {
        const Table* old = table_.load(std::memory_order_relaxed);
        auto bigger = std::make_unique<Table>(old ? 2 * (old->mask + 1) : 64);
        for (size_t i = 0; old != nullptr && i <= old->mask; ++i) {
            if (T p = old->at(i)) bigger->set(bigger->find(p), p);
        }
        tables_.push_back(std::move(bigger));  // may fail: the set is still unchanged
        table_.store(tables_.back().get(), std::memory_order_release);
    }

    std::atomic<Table*> table_ = nullptr;
    std::vector<std::unique_ptr<Table>> tables_;  // the current one last
    size_t size_ = 0;
};

// One host is called from many threads at once. Each structure has a lock of its own, taken
// only around the structure: one lock over every service would order every call after the
// one before and hide the plugin's own races from ThreadSanitizer. Handle lookups, by far the
// most frequent use, take no lock (HandleSet::seen), so they do not order each other either.
// Registration happens while the plugin starts, before any call; the registry is read-only
// afterwards.
struct Host::State {
    uint64_t hostSerial = 0;
    std::atomic<uint64_t> nextSerial = 1;
    mutable std::mutex stringsLock, objectsLock, stringDataLock;
    HandleSet<const void*> strings;  // live string blocks
    HandleSet<const Object*> objects;
    HandleSet<const StringDataRecord*> stringData;
    std::atomic<int64_t> yields = 0;
    uint32_t interfaceVersion = 0;
    std::vector<RegisteredModule> modules;
    std::vector<RegisteredMethod> globals;
    std::vector<RegisteredClassExtension> extensions;
    mutable std::mutex misusesLock;
    std::vector<std::string> misuses;
    uint64_t serviceFailures = 0;  // services that failed inside (out of memory) and said so
};

// The exception raised by the handler running on the calling thread in this host, not yet
// taken (the slot holds its reference). Kept per thread: handlers on other threads raise
// their own.
Object*& pendingException(Host::State& st);
// Forgets the calling thread's slot of a host that goes away.
void dropPendingException(Host::State& st);

struct HostAccess {
    static Host::State* state(Host& h) { return h.state_; }
    static const Host::State* state(const Host& h) { return h.state_; }
    static uint64_t owner(const Value& v) { return v.host_; }
};

// The active host's state, or null when no host is alive.
Host::State* currentState();
// The state of the live host with this serial, active or not; null when it is gone.
Host::State* liveState(uint64_t hostSerial);

// Memory for string blocks and MemoryBlock contents, released with freeBlock. Large blocks are
// aligned and asked for transparent huge pages: the first touch of a big result then maps 2 MiB
// at a time instead of 4 KiB, which would otherwise dominate every call that makes a new
// multi-megabyte string. Null when out of memory.
void* allocateBlock(size_t bytes, bool zeroed);
// Releases a block from allocateBlock (large ones may be kept for reuse), and the kept ones.
void freeBlock(void* block);
void releaseKeptBlocks();

// Strings.
REALstring newString(Host::State& st, const char* data, size_t length, uint32_t encoding);
StringHeader* liveString(Host::State& st, REALstring s);  // null (and a misuse) if not live
std::string_view stringBytes(REALstring s);               // s must be live
void lockString(Host::State& st, REALstring s);
void unlockString(Host::State& st, REALstring s);
std::string stringAsUTF8(Host::State& st, REALstring s);  // bytes as they are if not convertible
// The same, as a view of s itself where its bytes are their own UTF-8 form, else of `storage`.
std::string_view utf8Of(Host::State& st, REALstring s, std::string& storage);
void misuse(Host::State& st, std::string message);

// Objects.
Object* newObject(Host::State& st, std::string_view className);  // null for an unknown class
Object* liveObject(Host::State& st, const void* handle);         // null (and a misuse)
void lockObject(Host::State& st, Object* o);
void unlockObject(Host::State& st, Object* o);
PropValue* findProp(Object* o, std::string_view name);
void* objectMethod(Object* o, std::string_view declaration);
void raise(Host::State& st, std::string_view className, std::string_view message);
void freeEverything(Host::State& st);

// "String", "Integer", ... as declarations name the types (for messages).
const char* typeName(Value::Type t);

// The resolver handed to the plugin.
void* resolve(const char* name);

// Counts a service that failed inside; it answers with its neutral result.
void serviceFailed() noexcept;

// Runs a host function that the plugin calls so that nothing unwinds into the plugin: an
// exception inside (an allocation that failed) is counted and answered with the neutral result
// (a null handle, false, 0), as the contract allows. NoExcept<f>::call has f's signature.
template <auto F>
struct NoExcept;
template <typename R, typename... A, R (*F)(A...)>
struct NoExcept<F> {
    static R call(A... args) noexcept {
        try {
            return F(args...);
        } catch (...) {
            serviceFailed();
        }
        if constexpr (!std::is_void_v<R>) return R{};
    }
};
template <auto F>
constexpr auto kNoExcept = &NoExcept<F>::call;

// Case- and blank-insensitive comparison of declarations and names.
std::string normalizeDeclaration(std::string_view text);
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// StyledText helpers (Objects.cpp).
std::string styledTextUTF8(Host::State& st, Object* styledText);
std::vector<ParagraphSpec> paragraphsOf(Host::State& st, Object* styledText);
int64_t paragraphCount(Host::State& st, Object* styledText);
int64_t alignmentOf(const Object* styledText, int64_t index);
void setAlignment(Object* styledText, int64_t index, int64_t alignment);

}  // namespace xhost
