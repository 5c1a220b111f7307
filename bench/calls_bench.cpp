// Small inputs: every registered method, each overload, called through the host on 16 B and
// 1 KiB, beside a no-op method of a second plugin called through a host of its own. Xojo code
// mostly calls these functions on short strings in loops, where the cost of a call is what is
// left: reading the arguments, the checks, building the result.
//
// The methods come from the host, and each needs a row below (what its text is) and a reading
// of each of its parameters: a method or parameter without one stops the program, so a new
// method cannot go unmeasured. Run: build-bench/bench/calls_bench.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "Bench.h"

using namespace bench;
using xhost::Value;

namespace {

constexpr size_t kCallSizes[] = {16, KiB};

std::string callSizeName(size_t n) {
    return n < KiB ? std::to_string(n) + "B" : sizeName(n);
}

[[noreturn]] void noCase(const std::string& what) {
    std::fprintf(stderr, "calls_bench: no case for %s\n", what.c_str());
    std::exit(2);
}

// What each method's main text is, by method name (none for methods without one). Texts of
// bytes rather than UTF-8 go in as strings of no declared encoding.
using Text = Bytes (*)(size_t);
const std::map<std::string, Text, std::less<>>& textOfMethod() {
    static const std::map<std::string, Text, std::less<>> rows = {
        {"ReplaceLineEndingsKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"HasPrefixKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"HasPostfixKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"ContainsWholeWordKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"GetStringsFromDataKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"CheckUTF8KXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"EncodeEmailSubjectKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"_yDecodeMemoryKXT", [](size_t n) { return yEncoded(n); }},
        {"_yDecodeStringKXT", [](size_t n) { return yEncoded(n); }},
        {"JaroWinklerDistanceKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"LevenshteinDistanceKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"ScientificStrKXT", nullptr},
        {"StrKXT", nullptr},
        {"RandomBytesStringKXT", nullptr},
        {"CreateStringKXT", nullptr},
        {"StrCompBytesKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"StrCompCharactersKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"CountOccurancesKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"ClearStringContentKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"DetectUnicodeMarkersKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"GetUnicodeMarkersKXT", nullptr},
        {"StringIsHTMLreadyKXT", [](size_t n) { return plainLine(Corpus::Prose, n); }},
        {"StringIsXMLreadyKXT", [](size_t n) { return plainLine(Corpus::Prose, n); }},
        {"StringANDKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"StringORKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"StringXORKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"StringXOR2KXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"UnicodeStringKXT", [](size_t n) { return latin1Bytes(n); }},
        {"NativeStringKXT", [](size_t n) { return corpus(Corpus::Western, n); }},
        {"DecodingFromMySQLKXT", [](size_t n) { return mysqlEscaped(n); }},
        {"EncodingToHTMLKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"DecodingFromHTMLKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"EncodingToXMLKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"DecodingFromXMLKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"EncodingToURLKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"DecodingFromURLKXT", [](size_t n) { return urlEncoded(Corpus::Multilingual, n); }},
        {"EncodingToQuotedPrintableKXT", [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"DecodingFromQuotedPrintableKXT",
         [](size_t n) { return quotedPrintable(Corpus::Multilingual, n); }},
        {"HexstringKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"EncodingToISO8859KXT", [](size_t n) { return corpus(Corpus::Western, n); }},
        {"DecodingFromISO8859KXT", [](size_t n) { return latin1Bytes(n); }},
        {"EncodingToCP1252KXT", [](size_t n) { return corpus(Corpus::Western1252, n); }},
        {"DecodingFromCP1252KXT", [](size_t n) { return cp1252Bytes(n); }},
        {"EncodingToHexKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"DecodingFromHexKXT", [](size_t n) { return hexEncoded(n); }},
        {"ReplaceNonPrintableCharactersKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"IsASCIIStringKXT", [](size_t n) { return plainLine(Corpus::Prose, n); }},
        {"RemoveHTMLTagsKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"RemoveHTMLTagsWithKXT", [](size_t n) { return corpus(Corpus::HTML, n); }},
        {"ConcatBinaryStringsKXT", [](size_t n) { return corpus(Corpus::Binary, n); }},
        {"SQLReplaceBooleanKXT", [](size_t n) { return corpus(Corpus::SQL, n); }},
        {"InStrBytesKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"InStrByteRangeKXT", [](size_t n) { return corpus(Corpus::Prose, n); }},
        {"ConvertUnicodeToCharacterCompositionKXT",
         [](size_t n) { return decomposedUTF8(Corpus::Multilingual, n); }},
        {"ConvertUnicodeToCharacterDecompositionKXT",
         [](size_t n) { return corpus(Corpus::Multilingual, n); }},
        {"RemoveAccentsKXT", [](size_t n) { return corpus(Corpus::Western, n); }},
        {"RTFDataKXT", [](size_t n) { return corpus(Corpus::RTF, n); }},
    };
    return rows;
}

// The arguments of one call: held strings and buffers stay alive with the values.
struct Call {
    std::vector<Value> args;
    std::vector<Bytes> keep;
    size_t bytes = 0;  // the main text's size
};

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}
bool named(const xhost::Parameter& p, std::string_view name) {
    return sameIgnoringCase(p.name, name);
}
bool typed(const xhost::Parameter& p, std::string_view type) {
    return sameIgnoringCase(p.type, type);
}

bool isUTF8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        const auto b = static_cast<unsigned char>(s[i]);
        const size_t len = b < 0x80                ? 1
                           : b >= 0xC2 && b < 0xE0 ? 2
                           : b >= 0xE0 && b < 0xF0 ? 3
                           : b >= 0xF0 && b < 0xF5 ? 4
                                                   : 0;
        if (len == 0 || i + len > s.size()) return false;
        for (size_t k = 1; k < len; ++k) {
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        }
        i += len;
    }
    return true;
}

// Each parameter read by its name and type: the main text (the first string, and the second
// operand of a comparison), short strings for the helpers, sizes of n, small counts.
Call argumentsOf(const xhost::RegisteredMethod& m, size_t n) {
    const auto row = textOfMethod().find(m.declaration.name);
    if (row == textOfMethod().end()) noCase(m.declarationText);
    Call call;
    Bytes text;
    if (row->second != nullptr) {
        text = row->second(n);
        call.keep.push_back(text);
        call.bytes = text->size();
    }
    const std::string_view main = text ? std::string_view(*text) : std::string_view();
    const uint32_t encoding = isUTF8(main) ? kREALTextEncodingUTF8 : kREALTextEncodingUnknown;
    bool firstString = true;
    for (const xhost::Parameter& p : m.declaration.params) {
        const std::string what = m.declarationText + ", parameter " + p.name;
        if (typed(p, "String")) {
            if (firstString || named(p, "b") || named(p, "c") || named(p, "d") || named(p, "e") ||
                named(p, "f")) {
                call.args.push_back(Value::string(main, encoding));
            } else if (named(p, "Prefix")) {
                call.args.push_back(Value::string(main.substr(0, main.size() / 2)));
            } else if (named(p, "NewLine")) {
                call.args.push_back(Value::string("\r\n"));
            } else if (named(p, "Placeholder")) {
                call.args.push_back(Value::string("?"));
            } else if (named(p, "Word")) {
                call.args.push_back(Value::string("house"));
            } else if (named(p, "find")) {
                call.args.push_back(Value::string("zq"));  // not there: the whole text is read
            } else if (named(p, "XorMask")) {
                call.args.push_back(Value::string("mask"));
            } else if (named(p, "Content")) {
                call.args.push_back(Value::string("abc"));
            } else if (named(p, "Replacement") || named(p, "spacer")) {
                call.args.push_back(Value::string(" "));
            } else if (named(p, "linestart") || named(p, "filler")) {
                call.args.push_back(Value::string("."));
            } else if (named(p, "lineend")) {
                call.args.push_back(Value::string("\n"));
            } else {
                noCase(what);
            }
            firstString = false;
        } else if (typed(p, "Integer")) {
            int64_t v;
            if (named(p, "size") || named(p, "Length")) {
                v = int64_t(n);
            } else if (named(p, "MinLength")) {
                v = 4;
            } else if (named(p, "digits")) {
                v = 12;
            } else if (named(p, "kind") || named(p, "mode") || named(p, "options")) {
                v = 1;
            } else if (named(p, "LineLen")) {
                v = 72;
            } else if (named(p, "hexlen")) {
                v = 2;
            } else if (named(p, "linelen")) {
                v = 16;
            } else if (named(p, "MaskOffset")) {
                v = 0;
            } else if (named(p, "replacevalue")) {
                v = 46;
            } else if (p.name.rfind("StartValue", 0) == 0) {
                v = '{';  // byte ranges prose does not hold: the whole text is read
            } else if (p.name.rfind("EndValue", 0) == 0) {
                v = '~';
            } else {
                noCase(what);
            }
            call.args.push_back(Value::integer(v));
        } else if (typed(p, "Boolean")) {
            if (!(named(p, "yield") || named(p, "ASCII") || named(p, "IgnoreCase"))) noCase(what);
            call.args.push_back(Value::boolean(false));
        } else if (typed(p, "Double")) {
            if (!named(p, "d")) noCase(what);
            call.args.push_back(Value::real(12345.678901));
        } else if (typed(p, "Ptr")) {
            call.args.push_back(Value::pointer(const_cast<char*>(main.data())));
        } else if (typed(p, "MemoryBlock")) {
            call.args.push_back(Value::memoryBlock(main));
        } else {
            noCase(what);
        }
    }
    return call;
}

// A benchmark name for one overload: the method and its parameter types.
std::string overloadName(const xhost::RegisteredMethod& m) {
    std::string name = m.declaration.name + "(";
    bool first = true;
    for (const xhost::Parameter& p : m.declaration.params) {
        if (p.extends) continue;
        name += (first ? "" : ",") + (p.assigns ? std::string("set") : p.type);
        first = false;
    }
    return name + ")";
}

void checkedLoop(benchmark::State& st, const std::function<xhost::CallResult()>& call,
                 size_t bytes) {
    if (xhost::CallResult r = call(); r.exception) {
        st.SkipWithError((r.exception->className + ": " + r.exception->message).c_str());
        return;
    }
    for ([[maybe_unused]] auto _ : st) {
        xhost::CallResult r = call();
        benchmark::DoNotOptimize(r);
    }
    account(st, bytes);
}

// The no-op method and the floors, through a host of their own that loads the no-op plugin.
xhost::HostOptions noopOptions() {
    xhost::HostOptions o;
    o.pluginPath = KXT_NOOP_PLUGIN_PATH;
    return o;
}
xhost::Host& noopHost() {
    static xhost::Host instance(noopOptions());
    return instance;
}

// The floor of an overload: the no-op plugin's method with the same argument and result types.
const xhost::RegisteredMethod* floorOf(const xhost::RegisteredMethod& m) {
    std::vector<std::string> types;
    for (const xhost::Parameter& p : m.declaration.params) types.push_back(p.type);
    for (const xhost::RegisteredMethod& f : noopHost().globalMethods()) {
        if (f.declaration.name.rfind("Floor", 0) != 0 ||
            f.declaration.params.size() != types.size() ||
            !sameIgnoringCase(f.declaration.resultType, m.declaration.resultType)) {
            continue;
        }
        bool same = true;
        for (size_t k = 0; k < types.size(); ++k) {
            same = same && sameIgnoringCase(f.declaration.params[k].type, types[k]);
        }
        if (same) return &f;
    }
    return nullptr;
}

void addMethod(const xhost::RegisteredMethod& m) {
    const xhost::RegisteredMethod* floor = floorOf(m);
    if (floor == nullptr) noCase("the floor of " + m.declarationText);
    for (size_t n : kCallSizes) {
        addOne("host", overloadName(m), "calls", callSizeName(n), "noop", [&m, n](auto& st) {
            Call call = argumentsOf(m, n);
            checkedLoop(
                st, [&] { return host().callMethod(m, call.args); }, call.bytes);
        });
        // The same arguments, made in the no-op plugin's host.
        addOne("anchor", "floor:" + overloadName(m), "calls", callSizeName(n), "",
               [&m, floor, n](auto& st) {
                   xhost::Host& h = noopHost();
                   h.activate();
                   {
                       Call call = argumentsOf(m, n);
                       checkedLoop(
                           st, [&] { return h.callMethod(*floor, call.args); }, call.bytes);
                   }
                   host().activate();
               });
    }
}

// RTFDataKXT, the StyledText property: read from and written to a StyledText of one run,
// through the module methods that extend StyledText on this host (looked up once, as every other
// method here: a program calls the property directly).
void addStyledTextProperty() {
    const xhost::RegisteredMethod *getter = nullptr, *setter = nullptr;
    for (const xhost::RegisteredMethod* m : host().overloads("RTFDataKXT")) {
        (m->declaration.params.back().assigns ? setter : getter) = m;
    }
    if (getter == nullptr || setter == nullptr) noCase("RTFDataKXT as module methods");
    for (size_t n : kCallSizes) {
        addOne("host", "RTFDataKXT(get)", "calls", callSizeName(n), "noop", [getter, n](auto& st) {
            Bytes text = corpus(Corpus::Multilingual, n);
            const std::vector<Value> args = {host().newStyledText({{.text = *text}}),
                                             Value::boolean(false)};
            checkedLoop(
                st, [&] { return host().callMethod(*getter, args); }, n);
        });
        addOne("host", "RTFDataKXT(set)", "calls", callSizeName(n), "noop", [setter, n](auto& st) {
            Bytes rtf = corpus(Corpus::RTF, n);
            const std::vector<Value> args = {host().newStyledText({}), Value::boolean(false),
                                             Value::string(*rtf)};
            checkedLoop(
                st, [&] { return host().callMethod(*setter, args); }, n);
        });
    }
}

void addNoOp() {
    for (size_t n : kCallSizes) {
        addOne("anchor", "noop", "calls", callSizeName(n), "", [n](auto& st) {
            xhost::Host& h = noopHost();
            h.activate();  // its values belong to it
            {
                Bytes text = corpus(Corpus::Prose, n);
                const std::vector<Value> args = {Value::string(*text)};
                const xhost::RegisteredMethod& m = *h.overloads("NoOpKXT").at(0);
                checkedLoop(
                    st, [&] { return h.callMethod(m, args); }, n);
            }
            host().activate();
        });
    }
}

bool extendsAnObject(const xhost::RegisteredMethod& m) {
    return !m.declaration.params.empty() && m.declaration.params[0].extends;
}

// Registered from main: the host cannot be made while the program's statics are set up.
void registerAll() {
    xhost::Host& h = host();
    // The StyledText property comes as a class extension or as module methods that extend
    // StyledText, depending on the host's version.
    bool styledText = !h.classExtensions().empty();
    for (const xhost::RegisteredModule& module : h.modules()) {
        for (const xhost::RegisteredMethod& m : module.methods) {
            if (extendsAnObject(m)) {
                styledText = true;
            } else {
                addMethod(m);
            }
        }
    }
    for (const xhost::RegisteredMethod& m : h.globalMethods()) addMethod(m);
    if (styledText) addStyledTextProperty();
    // Last, on a processor that has been busy for a while: the first benchmark of a run can meet
    // it still at a lower clock.
    addNoOp();
    h.activate();  // finding the floors made the no-op plugin's host, which made it the active one
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
