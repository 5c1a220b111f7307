// Every registered method through the emulated host, with arguments of any shape: strings of any
// bytes in any of the host's encodings (or nil), extreme integers and doubles, MemoryBlocks,
// pointer overloads with a buffer of exactly the given size, and RTFDataKXT read and assigned on
// styled texts. After each call nothing may leak, the host must have seen no misuse, and only
// the exceptions the plugin documents may be raised.
//
// The host's knobs come from the environment, so campaigns can cover other hosts:
// KXT_FUZZ_HOST_VERSION (default 2019.03), KXT_FUZZ_IDE=1, KXT_FUZZ_FAIL_MEMORYBLOCKS=1,
// KXT_FUZZ_HIDE=name,name.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "XojoHost.h"

using xhost::CallResult;
using xhost::Value;

namespace {

std::unique_ptr<xhost::Host> gHost;
std::vector<const xhost::RegisteredMethod*> gMethods;

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

void checkException(const std::string& what, const CallResult& r) {
    if (!r.exception) return;
    const std::string& c = r.exception->className;
    if (c != "OutOfMemoryException" && c != "OutOfBoundsException" && c != "RuntimeException") {
        fail(what + " raised " + c + ": " + r.exception->message);
    }
}

void checkResultEncoding(const std::string& what, const Value& v) {
    if (v.type() != Value::Type::String || v.isNil()) return;
    for (uint32_t e : kEncodings) {
        if (v.encoding() == e) return;
    }
    fail(what + " returned a string tagged 0x" + std::to_string(v.encoding()));
}

void checkBalanced(const std::string& what) {
    if (gHost->liveStrings() != 0 || gHost->liveObjects() != 0 ||
        gHost->outstandingStringData() != 0) {
        fail(what + " leaked: " + gHost->describeLive());
    }
    auto misuses = gHost->misuses();
    if (!misuses.empty()) fail(what + " misused the host: " + misuses.front());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    xhost::HostOptions options;
    if (const char* v = getenv("KXT_FUZZ_HOST_VERSION")) options.version = atof(v);
    if (const char* v = getenv("KXT_FUZZ_IDE")) options.inRuntime = atoi(v) == 0;
    if (const char* v = getenv("KXT_FUZZ_FAIL_MEMORYBLOCKS")) options.failMemoryBlocks = atoi(v);
    if (const char* v = getenv("KXT_FUZZ_HIDE")) {
        std::stringstream names(v);
        for (std::string name; std::getline(names, name, ',');) options.hidden.insert(name);
    }
    gHost = std::make_unique<xhost::Host>(options);
    for (const auto& m : gHost->modules()) {
        for (const auto& method : m.methods) {
            if (method.declaration.params.empty() || !method.declaration.params[0].extends) {
                gMethods.push_back(&method);
            }
        }
    }
    for (const auto& method : gHost->globalMethods()) gMethods.push_back(&method);
    if (gMethods.empty()) fail("the plugin registered no methods");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const bool debugging = in.ConsumeIntegral<uint8_t>() == 0;
    gHost->setDebugging(debugging);
    const size_t choice = in.ConsumeIntegralInRange<size_t>(0, gMethods.size() + 1);
    if (choice >= gMethods.size()) {
        // RTFDataKXT: read a random styled text, or assign random bytes to one.
        std::vector<xhost::RunSpec> runs;
        const int count = in.ConsumeIntegralInRange(0, 6);
        for (int i = 0; i < count; ++i) runs.push_back(runSpec(in));
        {
            Value styled = gHost->newStyledText(runs);
            const bool skip = in.ConsumeBool();
            if (choice == gMethods.size()) {
                CallResult r = gHost->getRTF(styled, skip);
                checkException("RTFDataKXT getter", r);
                if (r.exception) fail("the RTF getter raised");
            } else {
                Value rtf = stringArgument(in);
                CallResult r = gHost->setRTF(styled, rtf, skip);
                checkException("RTFDataKXT setter", r);
            }
        }
        checkBalanced("RTFDataKXT");
        return 0;
    }
    const xhost::RegisteredMethod& method = *gMethods[choice];
    {
        std::vector<std::string> buffers;
        buffers.reserve(method.declaration.params.size());
        std::vector<Value> args = arguments(method.declaration, in, buffers);
        CallResult r = gHost->callMethod(method, args);
        checkException(method.declarationText, r);
        checkResultEncoding(method.declarationText, r.value);
    }
    checkBalanced(method.declarationText);
    return 0;
}
