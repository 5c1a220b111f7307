// The smallest plugins the emulated host loads, for the small-input benchmark:
//  - NoOpKXT returns its argument (with the reference a returned argument needs): what a call
//    itself costs;
//  - one floor method for each argument and result list the real plugin registers, doing what
//    a thin handler of that shape must do through the host and nothing else: each string and
//    MemoryBlock argument read (locked, its bytes fetched, unlocked at the end), and the result
//    built from the first one's bytes (a string, a one-element string array, a MemoryBlock) or
//    given as a number. A method cannot be cheaper than its floor through this interface.
// Built on the plugin's own glue and utility code, so the host services are called exactly as
// the real handlers call them.
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "REALplugin.h"
#include "rbArray.h"
#include "rbData.h"
#include "rbException.h"
#include "rbMemoryBlock.h"
#include "rbRef.h"
#include "rbUtil.h"

namespace {

REALstring NoOp(REALstring s) {
    if (s != nullptr) REALLockString(s);
    return s;
}

// Xojo's name of each C type of a declaration.
template <typename T>
constexpr const char* kXojoType = nullptr;
template <>
constexpr const char* kXojoType<REALstring> = "String";
template <>
constexpr const char* kXojoType<RBInteger> = "Integer";
template <>
constexpr const char* kXojoType<RBBoolean> = "Boolean";
template <>
constexpr const char* kXojoType<double> = "Double";
template <>
constexpr const char* kXojoType<void*> = "Ptr";
template <>
constexpr const char* kXojoType<REALmemoryBlock> = "MemoryBlock";
template <>
constexpr const char* kXojoType<REALarray> = "String()";

// The arguments of one call, read as the handlers read them; held until the result is built.
class Arguments {
  public:
    void read(REALstring s) { keep(slots_[used_++].emplace(s)); }
    void read(REALmemoryBlock mb) { keep(slots_[used_++].emplace(mb, 0, 0)); }
    template <typename T>
    void read(T) {}

    template <typename R>
    R result() const {
        if constexpr (std::is_same_v<R, REALstring>) {
            return REALBuildUnicodeString(first_, kREALTextEncodingUTF8);
        } else if constexpr (std::is_same_v<R, REALarray>) {
            REALarray array = REALCreateArrayString(-1);
            const HostString s(REALBuildUnicodeString(first_, kREALTextEncodingUTF8));
            REALAppendArrayValue(array, s.get());
            return array;
        } else if constexpr (std::is_same_v<R, REALmemoryBlock>) {
            return REALBuildMemoryblock(first_.data(), int64_t(first_.size()));
        } else {
            return R(first_.size());
        }
    }

  private:
    void keep(const rbData& d) {
        if (used_ == 1) first_ = d.view();
    }
    std::array<std::optional<rbData>, 8> slots_;
    size_t used_ = 0;
    std::string_view first_;
};

template <typename R, typename... A>
R Floor(A... args) {
    return HandlerBoundary<R>(R{}, [&] {
        Arguments a;
        (a.read(args), ...);
        return a.template result<R>();
    });
}

// Every floor's declaration and definition, kept for the host to read.
std::vector<std::string>& declarations() {
    static auto* d = new std::vector<std::string>;
    return *d;
}
std::vector<REALmethodDefinition>& definitions() {
    static auto* d = new std::vector<REALmethodDefinition>;
    return *d;
}

template <typename R, typename... A>
void addFloor() {
    std::string text = "Floor" + std::to_string(definitions().size()) + "KXT(";
    const char* types[] = {kXojoType<A>...};
    for (size_t k = 0; k < sizeof...(A); ++k) {
        text += (k ? ", a" : "a") + std::to_string(k + 1) + " as " + types[k];
    }
    text += std::string(") as ") + kXojoType<R>;
    declarations().push_back(text);
    definitions().push_back(
        {reinterpret_cast<REALproc>(&Floor<R, A...>), nullptr, nullptr, 0, 0, nullptr});
}

using S = REALstring;
using I = RBInteger;
using B = RBBoolean;
using M = REALmemoryBlock;

}  // namespace

void PluginEntry() {
    static REALmethodDefinition noop = {
        reinterpret_cast<REALproc>(NoOp), nullptr, "NoOpKXT(s as string) as string", 0, 0, nullptr};
    REALRegisterMethod(&noop);
    // The argument and result lists of the real plugin's methods.
    addFloor<S, S>(), addFloor<S, S, I>(), addFloor<S, S, S>(), addFloor<S, S, S, I>();
    addFloor<S, S, B>(), addFloor<S, S, S, B>(), addFloor<S, S, S, S>(), addFloor<S, S, S, S, S>();
    addFloor<S, S, S, S, S, S>(), addFloor<S, S, S, S, S, S, S>();
    addFloor<S, S, I, I, S, S, S, S>(), addFloor<S, I>(), addFloor<S, I, B>(), addFloor<S, I, S>();
    addFloor<S, double>(), addFloor<S, double, I>(), addFloor<S, void*, I, S>(),
        addFloor<S, M, S>();
    addFloor<I, S>(), addFloor<I, S, S>(), addFloor<I, S, I, I>(), addFloor<I, S, I, I, I, I>();
    addFloor<I, S, I, I, I, I, I, I>(), addFloor<I, S, S, I, I>(), addFloor<I, S, S, I, I, I, I>();
    addFloor<I, S, S, I, I, I, I, I, I>();
    addFloor<B, S>(), addFloor<B, S, S>(), addFloor<B, S, I>(), addFloor<double, S, S>();
    addFloor<REALarray, S, I>(), addFloor<REALarray, M, I>(), addFloor<REALarray, void*, I, I>();
    addFloor<M, M>();
    for (size_t k = 0; k < definitions().size(); ++k) {
        definitions()[k].declaration = declarations()[k].c_str();
        REALRegisterMethod(&definitions()[k]);
    }
}
