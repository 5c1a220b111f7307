// The text access object on any bytes tagged with any of the host's encodings, on hosts old and
// new, with the forms asked for in any order and the debug log on or off. Every form must be
// zero-terminated at its length; pure ASCII in an 8-bit encoding must give the bytes themselves
// in every form; UTF-8 (and ASCII-tagged) text must give in UTF-16 and UTF-32 exactly what a
// plain decoder reads up to the first malformed sequence, byte order marks dropped, so valid
// UTF-8 comes back through either form; and nothing may leak.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ByteView.h"
#include "REALplugin.h"
#include "XojoHost.h"
#include "rbDebug.h"
#include "rbText.h"
#include "utf_reference.h"

namespace {

constexpr uint32_t kEncodings[] = {
    kREALTextEncodingUTF8,     kREALTextEncodingASCII,     kREALTextEncodingUTF16,
    kREALTextEncodingUTF32,    kREALTextEncodingISOLatin1, kREALTextEncodingWindowsLatin1,
    kREALTextEncodingMacRoman, kREALTextEncodingUnknown,   kREALTextEncodingUTF16BE,
    kREALTextEncodingUTF16LE,  kREALTextEncodingUTF32BE,   kREALTextEncodingUTF32LE,
};
constexpr double kVersions[] = {2011.0, 2012.0, 2013.0, 2019.03};
std::unique_ptr<xhost::Host> gHosts[std::size(kVersions)];

std::string gBytes;
uint32_t gEncoding = 0;

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "rbtext_fuzz: %s; encoding 0x%X, bytes:", what, gEncoding);
    for (const uint8_t c : kxt::unsignedBytes(gBytes)) fprintf(stderr, " %02X", c);
    fprintf(stderr, "\n");
    abort();
}

std::string withoutByteOrderMarks(const std::string& bytes) {
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes.compare(i, 3, "\xEF\xBB\xBF") == 0 || bytes.compare(i, 3, "\xEF\xBF\xBE") == 0) {
            i += 2;
            continue;
        }
        out += bytes[i];
    }
    return out;
}

bool isEightBit(uint32_t e) {
    return e == kREALTextEncodingUTF8 || e == kREALTextEncodingASCII ||
           e == kREALTextEncodingISOLatin1 || e == kREALTextEncodingWindowsLatin1 ||
           e == kREALTextEncodingMacRoman || e == kREALTextEncodingUnknown;
}

template <typename Unit>
std::vector<Unit> form(const Unit* p, int64_t length, const char* name) {
    if (p == nullptr || length < 0) fail(name);
    if (p[length] != 0) fail(name);  // not zero-terminated
    return std::vector<Unit>(p, p + length);
}

void checkText(uint8_t order) {
    const xhost::Value v = xhost::Value::string(gBytes, gEncoding);
    rbText text(v.stringHandle());
    std::string ascii, utf8;
    std::vector<uint16_t> utf16;
    std::vector<uint32_t> utf32;
    // The forms in an order the input chooses: some are made from others.
    int forms[4] = {0, 1, 2, 3};
    for (int i = 3; i > 0; --i) std::swap(forms[i], forms[(order >> (2 * (3 - i))) % (i + 1)]);
    for (int f : forms) {
        switch (f) {
            case 0: {
                auto a = form(text.GetASCII(), text.LengthASCII(), "the ASCII form");
                ascii.assign(a.begin(), a.end());
                break;
            }
            case 1: {
                auto u = form(text.GetUTF8(), text.LengthUTF8(), "the UTF-8 form");
                utf8.assign(u.begin(), u.end());
                break;
            }
            case 2:
                utf16 = form(text.GetUTF16(), text.LengthUTF16(), "the UTF-16 form");
                break;
            case 3:
                utf32 = form(text.GetUTF32(), text.LengthUTF32(), "the UTF-32 form");
                break;
        }
    }
    // A second request gives the same form.
    if (text.LengthUTF32() != int64_t(utf32.size()) ||
        text.LengthUTF16() != int64_t(utf16.size())) {
        fail("a length changed between requests");
    }

    bool pureASCII = true;
    for (const uint8_t c : kxt::unsignedBytes(gBytes)) pureASCII &= c < 0x80;
    if (isEightBit(gEncoding) && pureASCII) {
        if (ascii != gBytes || utf8 != gBytes)
            fail("pure ASCII is not its own ASCII and UTF-8 form");
        if (utf16 != std::vector<uint16_t>(gBytes.begin(), gBytes.end()) ||
            utf32 != std::vector<uint32_t>(gBytes.begin(), gBytes.end())) {
            fail("pure ASCII is not widened byte by byte");
        }
    }
    if (gEncoding == kREALTextEncodingUTF8 || gEncoding == kREALTextEncodingASCII) {
        if (gEncoding == kREALTextEncodingUTF8 && utf8 != gBytes)
            fail("the UTF-8 form is not the bytes");
        bool complete = false;
        const std::vector<uint32_t> expected = ref::decodeUTF8(gBytes, &complete);
        if (utf32 != expected) fail("the UTF-32 form differs from a plain UTF-8 decoder");
        if (utf16 != ref::utf16Of(expected))
            fail("the UTF-16 form differs from a plain UTF-8 decoder");
        if (complete && ref::utf8Of(utf32) != withoutByteOrderMarks(gBytes)) {
            fail("valid UTF-8 does not come back from the UTF-32 form");
        }
    }
    if (gEncoding == kREALTextEncodingUTF16 && utf32.size() > utf16.size()) {
        fail("more UTF-32 units than UTF-16 units");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const uint8_t setup = in.ConsumeIntegral<uint8_t>();
    const size_t h = setup % std::size(kVersions);
    if (!gHosts[h]) {
        xhost::HostOptions options;
        options.version = kVersions[h];
        gHosts[h] = std::make_unique<xhost::Host>(options);
    }
    xhost::Host& host = *gHosts[h];
    host.activate();
    BindHost(&xhost::Host::resolve);  // the linked-in plugin code, bound to this host
    setDebugging((setup & 0x80) != 0);
    gEncoding = kEncodings[in.ConsumeIntegral<uint8_t>() % std::size(kEncodings)];
    const uint8_t order = in.ConsumeIntegral<uint8_t>();
    gBytes = in.ConsumeRemainingBytesAsString();
    // Byte-order marks in front, now and then, as wide text often has them.
    if ((setup & 0x70) == 0x10) gBytes = "\xFF\xFE" + gBytes;
    if ((setup & 0x70) == 0x20) gBytes = "\xFE\xFF" + gBytes;
    if ((setup & 0x70) == 0x30) gBytes = "\xEF\xBB\xBF" + gBytes;
    checkText(order);
    if (host.liveStrings() != 0 || host.liveObjects() != 0 || host.outstandingStringData() != 0) {
        fail(("leaked: " + host.describeLive()).c_str());
    }
    if (!host.misuses().empty()) fail(("misused the host: " + host.misuses().front()).c_str());
    return 0;
}
