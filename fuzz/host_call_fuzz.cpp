// Every registered method through the emulated host, with arguments of any shape: strings of any
// bytes in any of the host's encodings (or nil), extreme integers and doubles, MemoryBlocks,
// pointer overloads with a buffer of exactly the given size, and RTFDataKXT read and assigned on
// styled texts. After each call nothing may leak, the host must have seen no misuse, and only
// the exceptions the method may raise are raised.
//
// The input also chooses the host: its version (each threshold where registration or the string
// builders change), runtime or IDE, one host function the resolver hides, MemoryBlocks that fail
// to allocate, and the Debugging switch. Every host loads its own copy of the plugin, and copies
// stay mapped under the sanitizers, so hosts come from a fixed list of configurations, each made
// when first chosen and kept until exit; each call activates its own.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "XojoHost.h"

using xhost::CallResult;
using xhost::Value;

namespace {

struct Config {
    double version;
    bool inRuntime;
    const char* hidden;  // a name the resolver does not know, or null
};

// Versions at the thresholds where the interface version, registration or the string builders
// change; hidden names of the services whose absence changes a path in the plugin.
constexpr Config kConfigs[] = {
    {2011.0, true, nullptr},
    {2011.0, false, nullptr},
    {2012.0, true, nullptr},
    {2012.0, false, nullptr},
    {2013.0, true, nullptr},
    {2013.0, false, nullptr},
    {2013.04, true, nullptr},
    {2013.04, false, nullptr},
    {2019.03, true, nullptr},
    {2019.03, false, nullptr},
    {2020.02, true, nullptr},
    {2020.02, false, nullptr},
    {3000.0, true, nullptr},
    {3000.0, false, nullptr},
    {2019.03, true, "REALConvertString"},
    {2019.03, true, "PluginGetStringData"},
    {2019.03, true, "PluginCallFunctionWithExceptionHandler"},
    {2019.03, true, "PluginNewInstance"},
    {2019.03, true, "memoryBlockGetPtr"},
    {2019.03, true, "REALLoadObjectMethod"},
    {2019.03, true, "RuntimeArrayCreateSingleDimBoundedArray"},
    {2019.03, true, "PluginStringArrayInsertProc"},
    {2019.03, true, "LenB( s as string ) as integer"},
    {2019.03, true, "Len(s as string) as integer"},
    {2019.03, true, "REALSetPropValueString"},
    {2019.03, true, "REALSetPropValueInteger"},
    {2019.03, true, "REALBuildStringWithEncoding"},
    {2019.03, true, "REALGetStringEncoding"},
    {2019.03, true, "RuntimeRaiseException"},
    {2011.0, true, "REALConvertString"},
    {2011.0, true, "REALBuildString"},
    {2011.0, true, "REALSetStringEncoding"},
    {2012.0, true, "PluginGetStringData"},
    {2012.0, true, "RuntimeRaiseException"},
};

struct HostEntry {
    std::unique_ptr<xhost::Host> host;
    std::vector<const xhost::RegisteredMethod*> methods;
};
HostEntry gHosts[std::size(kConfigs)];
xhost::Host* gHost = nullptr;  // the host of the running input

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "host_call_fuzz: %s\n", what.c_str());
    abort();
}

constexpr uint32_t kEncodings[] = {
    kREALTextEncodingUTF8,     kREALTextEncodingASCII,     kREALTextEncodingUTF16,
    kREALTextEncodingUTF32,    kREALTextEncodingISOLatin1, kREALTextEncodingWindowsLatin1,
    kREALTextEncodingMacRoman, kREALTextEncodingUnknown,   kREALTextEncodingUTF16BE,
    kREALTextEncodingUTF16LE,  kREALTextEncodingUTF32BE,   kREALTextEncodingUTF32LE,
};

std::string bytes(FuzzedDataProvider& in) {
    return in.ConsumeRandomLengthString(2048);
}

Value stringArgument(FuzzedDataProvider& in) {
    uint8_t choice = in.ConsumeIntegral<uint8_t>();
    if (choice % 16 == 0) return Value::nil();
    std::string text = bytes(in);
    // Byte-order marks in front of wide text, now and then.
    if (choice % 16 == 1) text = "\xFF\xFE" + text;
    if (choice % 16 == 2) text = "\xFE\xFF" + text;
    if (choice % 16 == 3) text = std::string("\xFF\xFE\0\0", 4) + text;
    return Value::string(text, kEncodings[(choice >> 4) % std::size(kEncodings)]);
}

int64_t integerArgument(FuzzedDataProvider& in) {
    constexpr int64_t kSpecial[] = {0,
                                    -1,
                                    1,
                                    2,
                                    3,
                                    7,
                                    16,
                                    46,
                                    72,
                                    127,
                                    128,
                                    255,
                                    256,
                                    -128,
                                    std::numeric_limits<int64_t>::min(),
                                    std::numeric_limits<int64_t>::max()};
    if (in.ConsumeBool()) return kSpecial[in.ConsumeIntegral<uint8_t>() % std::size(kSpecial)];
    // Lengths are taken at their word (CreateStringKXT allocates what it is asked for), so
    // ordinary values stay small enough for the fuzzer's memory limit.
    return in.ConsumeIntegralInRange<int64_t>(-1000, 5000);
}

double doubleArgument(FuzzedDataProvider& in) {
    const double kSpecial[] = {0.0,
                               -0.0,
                               std::nan(""),
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::denorm_min(),
                               std::numeric_limits<double>::max(),
                               -std::numeric_limits<double>::max(),
                               1e-300,
                               0.1,
                               1.0 / 3.0};
    if (in.ConsumeBool()) return kSpecial[in.ConsumeIntegral<uint8_t>() % std::size(kSpecial)];
    return in.ConsumeFloatingPoint<double>();
}

bool isType(const std::string& type, const char* name) {
    if (type.size() != strlen(name)) return false;
    for (size_t i = 0; i < type.size(); ++i) {
        if (tolower(static_cast<unsigned char>(type[i])) != tolower(name[i])) return false;
    }
    return true;
}

// Arguments for one declaration. A Ptr parameter gets a buffer whose size the next parameter
// states exactly: the pointer overloads trust their caller's size.
std::vector<Value> arguments(const xhost::Declaration& d, FuzzedDataProvider& in,
                             std::vector<std::string>& buffers) {
    std::vector<Value> args;
    for (size_t i = 0; i < d.params.size(); ++i) {
        const std::string& type = d.params[i].type;
        if (isType(type, "String")) {
            args.push_back(stringArgument(in));
        } else if (isType(type, "Integer")) {
            args.push_back(Value::integer(integerArgument(in)));
        } else if (isType(type, "Boolean")) {
            args.push_back(Value::boolean(in.ConsumeBool()));
        } else if (isType(type, "Double")) {
            args.push_back(Value::real(doubleArgument(in)));
        } else if (isType(type, "MemoryBlock")) {
            args.push_back(in.ConsumeIntegral<uint8_t>() % 16 == 0 ? Value::nil()
                                                                   : Value::memoryBlock(bytes(in)));
        } else if (isType(type, "Ptr")) {
            buffers.push_back(bytes(in));
            std::string& buffer = buffers.back();
            args.push_back(Value::pointer(buffer.empty() ? nullptr : buffer.data()));
            if (i + 1 < d.params.size()) {
                args.push_back(Value::integer(int64_t(buffer.size())));
                ++i;
            }
        } else {
            args.push_back(Value::nil());
        }
    }
    return args;
}

xhost::RunSpec runSpec(FuzzedDataProvider& in) {
    xhost::RunSpec r;
    r.text = bytes(in);
    r.font = in.ConsumeRandomLengthString(40);
    r.size = in.ConsumeIntegralInRange<int64_t>(-5, 200);
    r.bold = in.ConsumeBool();
    r.italic = in.ConsumeBool();
    r.underline = in.ConsumeBool();
    r.color = in.ConsumeIntegral<uint32_t>() & 0xFFFFFF;
    return r;
}

// The exception classes a method may raise.
enum Raises : unsigned {
    kNone = 0,
    kOutOfMemory = 1,
    kOutOfBounds = 2,
    kRuntime = 4,
    kAny = kOutOfMemory | kOutOfBounds | kRuntime,
};

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

unsigned allowedExceptions(const xhost::RegisteredMethod& m) {
    const std::string& n = m.declaration.name;
    unsigned allowed = kAny;
    // URL, quoted-printable, hexadecimal, ISO-8859-1/CP1252, e-mail subject and yEnc: malformed
    // input is never an error and a failed allocation gives nil.
    static const char* const kNeverRaise[] = {"EncodingToURLKXT",
                                              "DecodingFromURLKXT",
                                              "EncodingToQuotedPrintableKXT",
                                              "DecodingFromQuotedPrintableKXT",
                                              "EncodingToHexKXT",
                                              "DecodingFromHexKXT",
                                              "DecodingFromMySQLKXT",
                                              "HexstringKXT",
                                              "EncodingToISO8859KXT",
                                              "DecodingFromISO8859KXT",
                                              "EncodingToCP1252KXT",
                                              "DecodingFromCP1252KXT",
                                              "EncodeEmailSubjectKXT",
                                              "_yDecodeStringKXT",
                                              "_yDecodeMemoryKXT"};
    // Search and comparison never raise for bad input; the distances raise only when their
    // tables cannot be allocated.
    static const char* const kOnlyOutOfMemory[] = {
        "ContainsWholeWordKXT", "CountOccurancesKXT",     "HasPostfixKXT",
        "HasPrefixKXT",         "StrCompBytesKXT",        "StrCompCharactersKXT",
        "InStrBytesKXT",        "JaroWinklerDistanceKXT", "LevenshteinDistanceKXT"};
    for (const char* name : kNeverRaise) {
        if (n == name) allowed = kNone;
    }
    for (const char* name : kOnlyOutOfMemory) {
        if (n == name) allowed = kOutOfMemory;
    }
    if (startsWith(n, "InStrByteRange")) allowed = kOutOfMemory;
    // A MemoryBlock that cannot be made is an OutOfMemoryException everywhere.
    if (m.declaration.resultType == "MemoryBlock") allowed |= kOutOfMemory;
    return allowed;
}

void checkException(const std::string& what, const CallResult& r, unsigned allowed) {
    if (!r.exception) return;
    const std::string& c = r.exception->className;
    const bool ok = (c == "OutOfMemoryException" && (allowed & kOutOfMemory)) ||
                    (c == "OutOfBoundsException" && (allowed & kOutOfBounds)) ||
                    (c == "RuntimeException" && (allowed & kRuntime));
    if (!ok) fail(what + " raised " + c + ": " + r.exception->message);
}

// The tags a result may carry: those the builders give (ASCII, UTF-8, the 8-bit encodings,
// none; UTF-16 only on hosts before 2012, which get UTF-16 and UTF-32 results unconverted; the
// byte-order marks keep the tag of their form; UnicodeStringKXT is the host's conversion to
// UTF-16), or the tag of an argument given back as it is.
void checkResultEncoding(const std::string& what, const xhost::RegisteredMethod& method,
                         const std::vector<Value>& args, const Value& v) {
    if (v.type() != Value::Type::String || v.isNil()) return;
    const uint32_t e = v.encoding();
    switch (e) {
        case kREALTextEncodingASCII:
        case kREALTextEncodingUTF8:
        case kREALTextEncodingISOLatin1:
        case kREALTextEncodingWindowsLatin1:
        case kREALTextEncodingMacRoman:
        case kREALTextEncodingUnknown:
            return;
    }
    if (e == kREALTextEncodingUTF16 && gHost->options().version < 2012.0) return;
    const std::string& name = method.declaration.name;
    if ((e == kREALTextEncodingUTF16 || e == kREALTextEncodingUTF32) &&
        name == "GetUnicodeMarkersKXT") {
        return;
    }
    if (e == kREALTextEncodingUTF16 && name == "UnicodeStringKXT") return;
    for (const Value& a : args) {
        if (a.type() == Value::Type::String && !a.isNil() && a.encoding() == e) return;
    }
    fail(what + " returned a string tagged 0x" + std::to_string(e) +
         ", which neither a builder nor an argument gives");
}

void checkBalanced(const std::string& what) {
    if (gHost->liveStrings() != 0 || gHost->liveObjects() != 0 ||
        gHost->outstandingStringData() != 0) {
        fail(what + " leaked: " + gHost->describeLive());
    }
    auto misuses = gHost->misuses();
    if (!misuses.empty()) fail(what + " misused the host: " + misuses.front());
}

HostEntry& hostFor(size_t config) {
    HostEntry& e = gHosts[config];
    if (e.host) return e;
    const Config& c = kConfigs[config];
    xhost::HostOptions options;
    options.version = c.version;
    options.inRuntime = c.inRuntime;
    if (c.hidden != nullptr) options.hidden.insert(c.hidden);
    e.host = std::make_unique<xhost::Host>(options);
    for (const auto& m : e.host->modules()) {
        for (const auto& method : m.methods) {
            if (method.declaration.params.empty() || !method.declaration.params[0].extends) {
                e.methods.push_back(&method);
            }
        }
    }
    for (const auto& method : e.host->globalMethods()) {
        if (method.declaration.params.empty() || !method.declaration.params[0].extends) {
            e.methods.push_back(&method);
        }
    }
    if (e.methods.empty()) fail("the plugin registered no methods");
    return e;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const bool debugging = in.ConsumeIntegral<uint8_t>() == 0;
    const uint8_t hostChoice = in.ConsumeIntegral<uint8_t>();
    HostEntry& entry = hostFor(hostChoice % std::size(kConfigs));
    gHost = entry.host.get();
    gHost->activate();
    gHost->setDebugging(debugging);
    const bool failMemoryBlocks = hostChoice >= 224;
    gHost->setFailMemoryBlocks(failMemoryBlocks);
    const std::vector<const xhost::RegisteredMethod*>& methods = entry.methods;
    const size_t choice = in.ConsumeIntegralInRange<size_t>(0, methods.size() + 1);
    if (choice >= methods.size()) {
        // RTFDataKXT: read a random styled text, or assign random bytes to one. Neither raises.
        std::vector<xhost::RunSpec> runs;
        const int count = in.ConsumeIntegralInRange(0, 6);
        for (int i = 0; i < count; ++i) runs.push_back(runSpec(in));
        {
            Value styled = gHost->newStyledText(runs);
            const bool skip = in.ConsumeBool();
            if (choice == methods.size()) {
                CallResult r = gHost->getRTF(styled, skip);
                checkException("RTFDataKXT getter", r, kNone);
            } else {
                Value rtf = stringArgument(in);
                CallResult r = gHost->setRTF(styled, rtf, skip);
                checkException("RTFDataKXT setter", r, kNone);
            }
        }
        checkBalanced("RTFDataKXT");
        return 0;
    }
    const xhost::RegisteredMethod& method = *methods[choice];
    {
        std::vector<std::string> buffers;
        buffers.reserve(method.declaration.params.size());
        std::vector<Value> args = arguments(method.declaration, in, buffers);
        CallResult r = gHost->callMethod(method, args);
        checkException(method.declarationText, r, allowedExceptions(method));
        checkResultEncoding(method.declarationText, method, args, r.value);
    }
    checkBalanced(method.declarationText);
    return 0;
}
