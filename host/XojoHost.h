// The emulated Xojo host: loads the plugin as Xojo does (resolver, registration) and calls its
// methods through their declared signatures. Tests, the kxt tool, benchmarks and fuzzers use it.
//
// Each Host loads a fresh copy of the plugin file, so the plugin's process-wide state (cached
// host functions, Debugging, tables) starts clean. Several Hosts may be alive at once; one is
// active: the one the resolver and the host services answer for. A new Host is active, and every
// call through a Host activates it first, so each reaches its own plugin copy and bookkeeping.
// Values made with Value::string and friends belong to the active Host.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "XojoDeclaration.h"
#include "XojoPluginABI.h"

namespace xhost {

struct HostOptions {
    double version = 2019.03;       // what "REALGetRBVersion" answers
    bool inRuntime = true;          // "REALinRuntime": true in a built app, false in the IDE
    std::set<std::string> hidden;   // names the resolver pretends not to know
    bool failMemoryBlocks = false;  // MemoryBlock constructor fails to allocate
    bool styleRunFontName = false;  // StyleRun has "FontName" instead of "Font"
    std::string pluginPath = KXT_PLUGIN_PATH;
};

// A parsed Xojo declaration. Types are also kept as a kind, which calls go by: None for no
// result, Object for a class name, Unknown for a built-in type no method uses (Color, ...).
using TypeKind = kxt::abi::XojoType;
TypeKind kindOf(std::string_view canonicalType);
struct Parameter {
    std::string name;
    std::string type;  // as written: "String", "Integer", "Boolean", "Double", "Ptr",
                       // "MemoryBlock", a class name
    TypeKind kind = TypeKind::Unknown;
    std::optional<std::string> defaultValue;
    bool extends = false;  // "extends ref as Class"
    bool assigns = false;  // "assigns value as T"
};
struct Declaration {
    std::string name;
    std::vector<Parameter> params;
    std::string resultType;  // empty for none; "String()" for string arrays
    TypeKind resultKind = TypeKind::None;
};
Declaration parseDeclaration(std::string_view text);  // throws std::invalid_argument

struct RegisteredMethod {
    std::string module;  // empty for a method registered on its own
    std::string declarationText;
    Declaration declaration;
    REALproc function = nullptr;
    REALproc setter = nullptr;
    uint32_t flags = 0;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string parseError;  // set when the declaration does not parse; never called then
};
struct RegisteredProperty {
    std::string module;
    std::string name, type;
    uint32_t flags = 0;
    REALproc getter = nullptr, setter = nullptr;
    std::vector<std::pair<std::string, std::string>> attributes;
};
struct RegisteredModule {
    std::string name;
    uint32_t version = 0, flags = 0;
    std::vector<RegisteredMethod> methods;
    std::vector<RegisteredProperty> properties;
};
struct RegisteredClassExtension {
    std::string className;
    uint32_t version = 0, flags = 0;
    std::vector<RegisteredMethod> methods;  // getter in function, setter in setter
    std::vector<RegisteredProperty> properties;
};

// A value handed to or returned from a method. Handle values hold one reference of their own
// (released when the Value goes), so tests never balance references by hand.
class Value {
  public:
    enum class Type { Nil, String, Integer, Boolean, Double, Ptr, MemoryBlock, Object, Array };

    Value() = default;
    static Value nil() { return Value(); }
    // The empty string is a nil handle, as Xojo passes it.
    static Value string(std::string_view bytes, uint32_t encoding = kREALTextEncodingUTF8);
    static Value integer(int64_t v);
    static Value boolean(bool v);
    static Value real(double v);
    static Value pointer(void* p);
    static Value memoryBlock(std::string_view bytes);
    // Adopt a handle (takes over one reference).
    static Value adoptString(REALstring s);
    static Value adoptObject(REALobject o, Type type = Type::Object);

    Value(const Value& other);
    Value(Value&& other) noexcept;
    Value& operator=(Value other) noexcept;
    ~Value();

    Type type() const { return type_; }
    bool isNil() const;  // Nil, or a nil handle
    // Typed readers; a nil string reads as empty.
    std::string bytes() const;  // String or MemoryBlock contents
    uint32_t encoding() const;  // String: its encoding (0xFFFF for none and for nil)
    int64_t asInteger() const;
    bool asBoolean() const;
    double asDouble() const;
    void* asPointer() const;
    std::vector<std::string> strings() const;  // Array of strings
    REALstring stringHandle() const;
    REALobject objectHandle() const;

  private:
    Type type_ = Type::Nil;
    int64_t i_ = 0;
    double d_ = 0;
    void* handle_ = nullptr;  // REALstring, REALobject, REALarray, or the Ptr
    uint64_t host_ = 0;       // the host that owns the handle; a stale Value never touches it
    friend struct HostAccess;
};

// One style run of a StyledText, as tests build and inspect them. Text is UTF-8.
struct RunSpec {
    std::string text{};
    std::string font{};
    int64_t size = 0;
    bool bold = false, italic = false, underline = false;
    uint32_t color = 0;  // 0x00RRGGBB
    bool operator==(const RunSpec&) const = default;
};
// One paragraph: 0-based character positions of its first and last character (line end
// included), and its alignment.
struct ParagraphSpec {
    int64_t start = 0, end = 0, alignment = 0;
    bool operator==(const ParagraphSpec&) const = default;
};

struct RaisedException {
    std::string className;
    std::string message;
    int64_t errorNumber = 0;
};

struct CallResult {
    Value value;                               // Nil for methods without a result
    std::optional<RaisedException> exception;  // what the call raised, if anything
};

class Host {
  public:
    struct State;  // the host's bookkeeping (HostInternal.h)

    explicit Host(HostOptions options = {});
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    static Host* current();  // the active host
    void activate();         // makes this host the active one
    const HostOptions& options() const { return options_; }
    // A live switch for HostOptions::failMemoryBlocks.
    void setFailMemoryBlocks(bool fail);

    // What the plugin registered.
    const std::vector<RegisteredModule>& modules() const;
    const std::vector<RegisteredMethod>& globalMethods() const;  // registered one by one
    const std::vector<RegisteredClassExtension>& classExtensions() const;
    uint32_t announcedInterfaceVersion() const;

    // Every callable overload of a name: module methods and methods registered on their own.
    std::vector<const RegisteredMethod*> overloads(std::string_view name) const;

    // Calls a method by name, choosing the overload by argument count and types as Xojo does
    // and filling defaults. Throws std::invalid_argument when no overload fits (message names
    // the overloads that exist).
    CallResult call(std::string_view name, const std::vector<Value>& args);
    // Calls one particular overload (one of overloads()); defaults fill missing arguments.
    // Throws std::invalid_argument when the arguments do not fit it.
    CallResult callMethod(const RegisteredMethod& method, const std::vector<Value>& args);

    // The StyledText property RTFDataKXT, through whichever registration the plugin made.
    CallResult getRTF(const Value& styledText, bool skipParagraphs = false);
    CallResult setRTF(const Value& styledText, const Value& rtf, bool skipParagraphs = false);

    // The hidden Debugging property (false when the plugin did not register it).
    bool setDebugging(bool on);
    std::optional<bool> debugging();

    // Host-side object construction, for tests.
    Value newObject(const std::string& className);
    // A StyledText holding these runs, and the runs and paragraphs of one.
    Value newStyledText(const std::vector<RunSpec>& runs);
    std::vector<RunSpec> styleRuns(const Value& styledText);
    std::vector<ParagraphSpec> paragraphs(const Value& styledText);
    // Sets paragraph alignments as the host's ParagraphAlignment does (index must exist).
    void setParagraphAlignment(const Value& styledText, int64_t index, int64_t alignment);

    // The resolver this host hands to a plugin; in-process tests bind plugin code with it.
    static void* resolve(const char* name);
    // Runs plugin code as if it were a call: returns what it raised.
    std::optional<RaisedException> runAsCall(const std::function<void()>& body);

    // Accounting.
    size_t liveStrings() const;
    size_t liveObjects() const;            // includes MemoryBlocks and arrays
    size_t outstandingStringData() const;  // PluginGetStringData records not yet disposed
    int64_t yieldCount() const;
    std::string describeLive() const;  // for failure messages
    // Wrong uses of the host seen so far: releasing a dead handle, disposing a string-data
    // record twice, unknown handles. Empty when the plugin behaved.
    std::vector<std::string> misuses() const;
    // Services that failed inside (an allocation) and answered with their neutral result.
    uint64_t serviceFailures() const;

  private:
    HostOptions options_;
    void* library_ = nullptr;
    std::string copyPath_;
    State* state_ = nullptr;
    friend struct HostAccess;
};

}  // namespace xhost
