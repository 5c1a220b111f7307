// The emulated host's own bookkeeping: string blocks, objects and the registry. Only the host's
// sources include this; clients use XojoHost.h.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "XojoHost.h"

namespace xhost {

// The header of a string block. The string's bytes follow at exactly kREALStringDataOffset from
// the start of the block (the handle), then one zero byte.
struct StringHeader {
    uint32_t magic;
    uint32_t encoding;
    int64_t refs;
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
    int64_t refs = 1;
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

struct Host::State {
    uint64_t hostSerial = 0;
    uint64_t nextSerial = 1;
    std::unordered_set<const void*> strings;  // live string blocks
    std::unordered_set<const Object*> objects;
    std::unordered_set<const StringDataRecord*> stringData;
    Object* pending = nullptr;  // exception raised by the running handler
    int64_t yields = 0;
    uint32_t interfaceVersion = 0;
    std::vector<RegisteredModule> modules;
    std::vector<RegisteredMethod> globals;
    std::vector<RegisteredClassExtension> extensions;
    std::vector<std::string> misuses;
};

struct HostAccess {
    static Host::State* state(Host& h) { return h.state_; }
    static const Host::State* state(const Host& h) { return h.state_; }
};

// The current host's state, or null when no host is alive.
Host::State* currentState();

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
