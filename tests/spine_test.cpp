// The plugin's own toolkit: debug log, exceptions, builders and text access. The plugin code
// linked into this program is bound to the emulated host in-process, so the helpers can be
// called directly and their host calls are counted like any plugin call.
#include <cstring>
#include <random>
#include <stdexcept>

#include "KxtTest.h"
#include "REALplugin.h"
#include "rbArray.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbMemoryBlock.h"
#include "rbText.h"
#include "rbUtil.h"
#include "search_reference.h"
#include "utf8.h"

using namespace kxt_test;

namespace {

// The word-at-a-time ASCII test against a byte loop: one high byte at every position of
// buffers around the 64-byte step, at every alignment.
TEST(IsASCIITest, AgreesWithByteLoop) {
    std::string buffer(300, 'a');
    for (size_t offset = 0; offset < 8; ++offset) {
        for (size_t length : std::initializer_list<size_t>{0, 1, 63, 64, 65, 127, 128, 200}) {
            const char* data = buffer.data() + offset;
            EXPECT_TRUE(IsASCII(data, int64_t(length))) << offset << " " << length;
            for (size_t high = 0; high < length; ++high) {
                buffer[offset + high] = char(0x80 | (high & 0x7F));
                ASSERT_FALSE(IsASCII(data, int64_t(length)))
                    << "offset " << offset << " length " << length << " high at " << high;
                ASSERT_TRUE(IsASCII(data, int64_t(high)));
                buffer[offset + high] = 'a';
            }
        }
    }
    EXPECT_TRUE(IsASCII(buffer.data(), -1));
}

TEST(DebugLog, WritesPrefixedFlushedLines) {
    testing::internal::CaptureStderr();
    LogMessage("abc", int64_t(5));
    LogMessage("two", int64_t(1), int64_t(-2));
    LogMessage("text", "value");
    LogMessage("plain");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KXT Debug: abc 5\nKXT Debug: two 1, -2\nKXT Debug: text value\nKXT Debug: plain\n");
}

TEST(DebugLog, CutsLinesAt4095Characters) {
    std::string huge(10000, 'x');
    testing::internal::CaptureStderr();
    LogMessage(huge.c_str());
    std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.size(), 4096u);  // 4095 characters and the line end
    EXPECT_EQ(line.substr(0, 11), "KXT Debug: ");
}

// Binds the statically linked plugin code to the live host before each test.
template <int Version100 = 201903>
class InProcess : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.version = Version100 / 100.0;
        return o;
    }
    void SetUp() override {
        HostTest::SetUp();
        BindHost(&xhost::Host::resolve);
    }
    // Runs f as a plugin call: an exception it raises is collected like a handler's.
    template <typename F>
    std::optional<xhost::RaisedException> raising(F f) {
        return host().runAsCall(f);
    }
    Value adopt(REALstring s) { return Value::adoptString(s); }
};

using Spine = InProcess<>;
using SpineOldHost = InProcess<201100>;
using Spine2012 = InProcess<201200>;

TEST_F(Spine, UnknownExceptionClassFallsBackToRuntimeException) {
    auto raised = raising([] { RaiseException("NoSuchException", "the message", 0u); });
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->className, "RuntimeException");
    EXPECT_EQ(raised->message, "the message");
    EXPECT_EQ(raised->errorNumber, 0);
    // The message and number reach the caller as given, the message as UTF-8.
    raised = raising([] {
        REALstring m = REALBuildStringWithEncoding("caf\xE9", 4, kREALTextEncodingISOLatin1);
        RaiseException("OutOfBoundsException", m, 42);
        REALUnlockString(m);
    });
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->className, "OutOfBoundsException");
    EXPECT_EQ(raised->message, "caf\xC3\xA9");
    EXPECT_EQ(raised->errorNumber, 42);
}

TEST_F(Spine, StandardExceptionsMapToXojoClasses) {
    struct Case {
        std::function<void()> thrower;
        const char* className;
        const char* message;
    };
    const Case cases[] = {
        {[] { throw std::bad_alloc(); }, "OutOfMemoryException",
         "Failed to allocate memory: std::bad_alloc"},
        {[] { throw std::out_of_range("vector"); }, "OutOfBoundsException",
         "C++ reports range error: vector"},
        {[] { throw std::range_error("r"); }, "OutOfBoundsException", "C++ reports range error: r"},
        {[] { throw std::overflow_error("o"); }, "OutOfBoundsException",
         "C++ reports overflow error: o"},
        {[] { throw std::underflow_error(""); }, "OutOfBoundsException",
         "C++ reports underflow error"},
        {[] { throw std::runtime_error(""); }, "RuntimeException", "C++ Exception."},
        {[] { throw std::logic_error("bad"); }, "RuntimeException", "C++ Exception: bad"},
        {[] { throw 42; }, "RuntimeException", "Sorry, but there was an unnamed C++ Exception."},
    };
    for (const auto& c : cases) {
        auto raised = raising([&] {
            REALstring r = HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
                c.thrower();
                return nullptr;
            });
            EXPECT_EQ(r, nullptr);
        });
        ASSERT_TRUE(raised) << c.className;
        EXPECT_EQ(raised->className, c.className);
        EXPECT_EQ(raised->message, c.message);
    }
}

TEST_F(Spine, BuildersTagByEncodingRules) {
    struct Case {
        std::string bytes;
        uint32_t encoding, expected;
    };
    const Case cases[] = {
        {"hello", kREALTextEncodingISOLatin1, kREALTextEncodingASCII},
        {"hello", kREALTextEncodingUTF8, kREALTextEncodingUTF8},
        {"hello", kREALTextEncodingUnknown, kREALTextEncodingASCII},
        {"hello", kREALTextEncodingMacRoman, kREALTextEncodingASCII},
        {"h\xE9", kREALTextEncodingISOLatin1, kREALTextEncodingISOLatin1},
        {"h\xE9", kREALTextEncodingWindowsLatin1, kREALTextEncodingWindowsLatin1},
        {"h\xE9", kREALTextEncodingUnknown, kREALTextEncodingUnknown},
        {"hello", kREALTextEncodingASCII, kREALTextEncodingASCII},
    };
    for (const auto& c : cases) {
        Value v = adopt(REALBuildUnicodeString(c.bytes, c.encoding));
        EXPECT_EQ(v.bytes(), c.bytes);
        EXPECT_EQ(v.encoding(), c.expected) << c.bytes << " " << c.encoding;
    }
    EXPECT_EQ(REALBuildUnicodeString("", 0, kREALTextEncodingUTF8), nullptr);
    EXPECT_EQ(REALBuildUnicodeString(nullptr, 3, kREALTextEncodingUTF8), nullptr);
    EXPECT_EQ(CString2RB(nullptr, kREALTextEncodingUTF8), nullptr);
}

TEST_F(Spine, WideBuildersComeBackAsUTF8) {
    const uint16_t units[] = {0x48, 0xE9, 0xD83D, 0xDE00};
    Value a = adopt(REALBuildUnicodeString(units, sizeof units, kREALTextEncodingUTF16));
    EXPECT_EQ(a.bytes(), "H\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_EQ(a.encoding(), kREALTextEncodingUTF8);
    const uint32_t points[] = {0x48, 0x1F600};
    Value b = adopt(REALBuildUnicodeString(points, sizeof points, kREALTextEncodingUTF32));
    EXPECT_EQ(b.bytes(), "H\xF0\x9F\x98\x80");
    // Ill-formed input costs one U+FFFD per bad unit, never the whole result.
    const std::string fffd = "\xEF\xBF\xBD";
    const std::pair<std::u16string, std::string> wide[] = {
        {u"a\xD83D"
         "b",
         "a" + fffd + "b"},
        {u"\xDE00\xD83D", fffd + fffd},
        {u"\xD83D\xD83D\xDE00x", fffd + "\xF0\x9F\x98\x80x"},
        {u"x\xD800", "x" + fffd},
    };
    for (const auto& [units, utf8] : wide) {
        Value v = adopt(REALBuildUnicodeString(units.data(), int64_t(units.size() * 2),
                                               kREALTextEncodingUTF16));
        EXPECT_EQ(v.bytes(), utf8);
    }
    const uint32_t bad[] = {0x41, 0xD800, 0x110000, 0xDFFF, 0x10FFFF};
    Value c = adopt(REALBuildUnicodeString(bad, sizeof bad, kREALTextEncodingUTF32));
    EXPECT_EQ(c.bytes(), "A" + fffd + fffd + fffd + "\xF4\x8F\xBF\xBF");
}

TEST_F(SpineOldHost, UTF32BecomesUTF16OnOldHosts) {
    const uint32_t points[] = {0x1F600, 0xD800, 0x110000, 0x41};
    Value v = adopt(REALBuildUnicodeString(points, sizeof points, kREALTextEncodingUTF32));
    EXPECT_EQ(v.encoding(), kREALTextEncodingUTF16);
    EXPECT_EQ(v.bytes(), std::string("\x3D\xD8\x00\xDE\xFD\xFF\xFD\xFF\x41\x00", 10));
    // Long inputs go through a heap buffer with the same result.
    std::vector<uint32_t> many(1000, 0x1F600);
    Value w = adopt(
        REALBuildUnicodeString(many.data(), int64_t(many.size() * 4), kREALTextEncodingUTF32));
    EXPECT_EQ(w.bytes().size(), 4000u);
}

TEST_F(Spine, MemoryBlocksCopyTheBytes) {
    REALmemoryBlock mb = REALBuildMemoryblock("abc", 3);
    Value v = Value::adoptObject(reinterpret_cast<REALobject>(mb), Value::Type::MemoryBlock);
    EXPECT_EQ(v.bytes(), "abc");
    EXPECT_EQ(REALBuildMemoryblock("abc", 0), nullptr);
    rbData whole(mb, 0, 0);
    EXPECT_EQ(whole.view(), "abc");
    rbData part(mb, 1, 2);
    EXPECT_EQ(part.view(), "bc");
}

TEST_F(Spine, ArraysAppendAtTheEnd) {
    REALarray a = REALCreateArrayString(-1);
    Value arr = Value::adoptObject(reinterpret_cast<REALobject>(a), Value::Type::Array);
    for (const char* text : {"one", "two"}) {
        Value s = adopt(CString2RB(text, kREALTextEncodingUTF8));
        REALAppendArrayValue(a, s.stringHandle());
    }
    EXPECT_EQ(arr.strings(), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(REALGetArrayUpperBound(a), 1);
    EXPECT_EQ(REALGetArrayUpperBound(nullptr), -1);
    REALAppendArrayValue(nullptr, nullptr);
}

TEST_F(Spine, NilStringViewsAreEmpty) {
    rbData data(static_cast<REALstring>(nullptr));
    EXPECT_EQ(data.data, nullptr);
    EXPECT_EQ(data.size, 0);
    rbText text(nullptr);
    EXPECT_STREQ(text.GetASCII(), "");
    EXPECT_STREQ(text.GetUTF8(), "");
    EXPECT_EQ(text.GetUTF16()[0], 0);
    EXPECT_EQ(text.GetUTF32()[0], 0u);
    EXPECT_EQ(text.LengthASCII() + text.LengthUTF8() + text.LengthUTF16() + text.LengthUTF32(), 0);
    EXPECT_EQ(text.GetUTF8Nil(), nullptr);
}

struct FormCase {
    std::string bytes;
    uint32_t encoding;
    std::u16string utf16;
    std::u32string utf32;
};

TEST_F(Spine, TextFormsFromEveryKindOfString) {
    const FormCase cases[] = {
        {"abc", kREALTextEncodingASCII, u"abc", U"abc"},
        {"\xC3\xA9", kREALTextEncodingUTF8, u"\u00E9", U"\u00E9"},
        {"\xF0\x9F\x98\x80!", kREALTextEncodingUTF8, u"\U0001F600!", U"\U0001F600!"},
        {"\xE9t\xE9", kREALTextEncodingISOLatin1, u"\u00E9t\u00E9", U"\u00E9t\u00E9"},
        {"\x80", kREALTextEncodingWindowsLatin1, u"\u20AC", U"\u20AC"},
        {"plain", kREALTextEncodingUnknown, u"plain", U"plain"},
        {"\xE9", kREALTextEncodingUnknown, u"\u00E9", U"\u00E9"},  // read as Latin-1
        // Byte order marks: skipped at the start, swapped when reversed.
        {std::string("\xFF\xFE\x41\x00", 4), kREALTextEncodingUTF16, u"A", U"A"},
        {std::string("\xFE\xFF\x00\x41\x00\x42", 6), kREALTextEncodingUTF16, u"AB", U"AB"},
        {std::string("\x3D\xD8\x00\xDE", 4), kREALTextEncodingUTF16, u"\U0001F600", U"\U0001F600"},
        // Marks inside UTF-8 text vanish; decoding stops at the first malformed sequence.
        {"a\xEF\xBB\xBF"
         "b",
         kREALTextEncodingUTF8, u"ab", U"ab"},
        {"a\xEF\xBF\xBE"
         "b",
         kREALTextEncodingUTF8, u"ab", U"ab"},
        {"ab\xC0\xAF"
         "cd",
         kREALTextEncodingUTF8, u"ab", U"ab"},
        {"ab\xED\xA0\x80", kREALTextEncodingUTF8, u"ab", U"ab"},
        {"ab\xF4\x90\x80\x80", kREALTextEncodingUTF8, u"ab", U"ab"},
        {"ab\xE2\x82", kREALTextEncodingUTF8, u"ab", U"ab"},
        {"\xE0\x9F\x80", kREALTextEncodingUTF8, u"", U""},
        {"x\xF0\x8F\xBF\xBF", kREALTextEncodingUTF8, u"x", U"x"},
        {"\xF4\x8F\xBF\xBF", kREALTextEncodingUTF8, u"\U0010FFFF", U"\U0010FFFF"},
    };
    for (const auto& c : cases) {
        Value v = S(c.bytes, c.encoding);
        rbText text(v.stringHandle());
        std::u16string u16(reinterpret_cast<const char16_t*>(text.GetUTF16()),
                           size_t(text.LengthUTF16()));
        std::u32string u32(reinterpret_cast<const char32_t*>(text.GetUTF32()),
                           size_t(text.LengthUTF32()));
        EXPECT_TRUE(u16 == c.utf16) << "utf16 of " << testing::PrintToString(c.bytes);
        EXPECT_TRUE(u32 == c.utf32) << "utf32 of " << testing::PrintToString(c.bytes);
        EXPECT_EQ(text.GetUTF16()[text.LengthUTF16()], 0);
        EXPECT_EQ(text.GetUTF32()[text.LengthUTF32()], 0u);
    }
}

// UTF-8 text of every length, mostly well formed, against the plain decoder: the forms are
// its code points up to the first flaw, byte order marks left out, zero-terminated.
TEST_F(Spine, UTF8TextFormsAgreeWithThePlainDecoder) {
    std::mt19937_64 rng(16);
    for (int round = 0; round < 2000; ++round) {
        const std::string bytes = round % 5 ? ref::mostlyUTF8(rng, rng() % 60, round % 3)
                                            : ref::adversarialBytes(rng, rng() % 40);
        bool complete;
        const std::vector<uint32_t> points = ref::decodeUTF8(bytes, &complete);
        const std::vector<uint16_t> units = ref::utf16Of(points);
        Value v = S(bytes, kREALTextEncodingUTF8);
        rbText text(v.stringHandle());
        ASSERT_EQ(std::vector<uint16_t>(text.GetUTF16(), text.GetUTF16() + text.LengthUTF16()),
                  units)
            << testing::PrintToString(bytes);
        ASSERT_EQ(std::vector<uint32_t>(text.GetUTF32(), text.GetUTF32() + text.LengthUTF32()),
                  points)
            << testing::PrintToString(bytes);
        ASSERT_EQ(text.GetUTF16()[text.LengthUTF16()], 0);
        ASSERT_EQ(text.GetUTF32()[text.LengthUTF32()], 0u);
        // The codec beneath, at every offset: checked decoding, and for well-formed sequences
        // the unchecked decoding and the encoding give them back.
        const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
        for (size_t i = 0; i < bytes.size(); ++i) {
            uint32_t point = 0;
            const size_t length = ref::sequenceLength(bytes, i, &point);
            const kxt::utf8::CodePoint c = kxt::utf8::decode(p + i, bytes.size() - i);
            ASSERT_EQ(c.length, length) << testing::PrintToString(bytes) << " at " << i;
            if (length == 0) continue;
            ASSERT_EQ(c.value, point);
            ASSERT_EQ(kxt::utf8::decodeValid(p + i).value, point);
            char encoded[4];
            ASSERT_EQ(std::string(encoded, kxt::utf8::encode(encoded, point)),
                      bytes.substr(i, length));
        }
    }
}

TEST_F(Spine, LengthsCountCodeUnits) {
    Value abc = S("abc", kREALTextEncodingASCII);
    rbText a(abc.stringHandle());
    EXPECT_EQ(a.LengthUTF8(), 3);
    EXPECT_EQ(a.LengthASCII(), 3);
    EXPECT_EQ(a.LengthUTF16(), 3);
    EXPECT_EQ(a.LengthUTF32(), 3);
    EXPECT_EQ(a.kind(), rbText::kPureASCII);
    Value e = S("\xC3\xA9", kREALTextEncodingUTF8);
    rbText b(e.stringHandle());
    EXPECT_EQ(b.LengthUTF8(), 2);
    EXPECT_EQ(b.LengthUTF16(), 1);
    EXPECT_EQ(b.kind(), rbText::kEightBit);
    Value latin = S("\xE9", kREALTextEncodingISOLatin1);
    rbText c(latin.stringHandle());
    EXPECT_STREQ(c.GetUTF8(), "\xC3\xA9");
    EXPECT_EQ(c.LengthUTF8(), 2);
}

TEST_F(Spine, TextFormsAreMadeOnceAndKept) {
    Value v = S("\xC3\xA9t\xC3\xA9", kREALTextEncodingUTF8);
    rbText text(v.stringHandle());
    const uint16_t* first = text.GetUTF16();
    EXPECT_EQ(text.GetUTF16(), first);
    EXPECT_EQ(text.LengthUTF16(), 3);
}

}  // namespace
