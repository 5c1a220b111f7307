// Byte-wise arithmetic and construction over plain buffers; the widened-mask and vector paths
// against the byte loop of search_reference.h for every mask length and offset.
#include "stringcalc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "KxtTest.h"
#include "search_reference.h"

using namespace std::string_literals;
using namespace kxt_test;

namespace {

// The bytes written; *ascii gets what the operation said of them.
std::string run(ref::MaskOp op, std::string_view data, std::string_view mask, int64_t offset = 0,
                bool* ascii = nullptr) {
    std::string out(data.size(), '\x55');
    auto* p = reinterpret_cast<uint8_t*>(out.data());
    bool said = false;
    switch (op) {
        case ref::MaskOp::And:
            said = kxt::maskAND(data, mask, p);
            break;
        case ref::MaskOp::Or:
            said = kxt::maskOR(data, mask, p);
            break;
        case ref::MaskOp::Xor:
            said = kxt::maskXOR(data, mask, offset, p);
            break;
        case ref::MaskOp::XorIndexed:
            said = kxt::maskXORIndexed(data, mask, offset, p);
            break;
    }
    if (ascii != nullptr) *ascii = said;
    return out;
}

bool allBelow0x80(std::string_view s) {
    for (char c : s) {
        if (uint8_t(c) >= 0x80) return false;
    }
    return true;
}

TEST(MaskOperations, IndexTermWrapsEvery256Bytes) {
    const std::string zeros(600, '\0');
    const std::string out = run(ref::MaskOp::XorIndexed, zeros, "\0"s);
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(uint8_t(out[i]), uint8_t(i)) << i;
}

TEST(FastPathsAgreeWithByteLoops, EveryMaskLengthAndOffset) {
    std::mt19937_64 rng(4242);
    const ref::MaskOp ops[] = {ref::MaskOp::And, ref::MaskOp::Or, ref::MaskOp::Xor,
                               ref::MaskOp::XorIndexed};
    for (int iteration = 0; iteration < 3000; ++iteration) {
        const size_t dataLen = iteration < 1000 ? rng() % 40 : rng() % 700;
        const size_t maskLen = 1 + (iteration % 3 == 0 ? rng() % 8 : rng() % 150);
        std::string data = ref::adversarialBytes(rng, dataLen);
        std::string mask = ref::adversarialBytes(rng, maskLen);
        if (iteration % 2 == 1) {
            // Mostly ASCII results, with at most one high byte anywhere (the ASCII flag).
            for (char& c : data) c = char(c & 0x7F);
            for (char& c : mask) c = char(c & 0x7F);
            if (dataLen > 0 && iteration % 4 == 1) data[rng() % dataLen] = char(0x80);
        }
        const int64_t offset = int64_t(rng() % 400) - 200;
        for (ref::MaskOp op : ops) {
            const int64_t o = op == ref::MaskOp::And || op == ref::MaskOp::Or ? 0 : offset;
            bool ascii = false;
            const std::string expected = ref::applyMask(data, mask, o, op);
            ASSERT_EQ(run(op, data, mask, o, &ascii), expected)
                << "op " << int(op) << " data " << testing::PrintToString(data) << " mask "
                << testing::PrintToString(mask) << " offset " << o;
            ASSERT_EQ(ascii, allBelow0x80(expected))
                << "op " << int(op) << " data " << testing::PrintToString(data) << " mask "
                << testing::PrintToString(mask) << " offset " << o;
        }
    }
}

TEST(MaskOperations, ExtremeOffsetsAreReduced) {
    const std::string data = "abcdefghij", mask = "\x01\x02\x03\x04\x05\x06\x07";
    for (int64_t offset : {INT64_MIN, INT64_MIN + 1, INT64_MAX, int64_t(7) * 1000000007}) {
        EXPECT_EQ(run(ref::MaskOp::Xor, data, mask, offset),
                  ref::applyMask(data, mask, offset, ref::MaskOp::Xor))
            << offset;
    }
}

TEST(Concat, JoinsBytesInOrder) {
    EXPECT_EQ(kxt::concatBytes({"ab", "", "c\0"s, "\xFF"}), "abc\0\xFF"s);
    EXPECT_EQ(kxt::concatBytes({"", ""}), "");
}

TEST(FillRepeating, RepeatsFromTheStartAndCuts) {
    struct Row {
        size_t length;
        std::string content, expected;
    } rows[] = {
        {5, "ab", "ababa"},     {1, "abc", "a"},       {3, "", "\0\0\0"s}, {3, "\0"s, "\0\0\0"s},
        {4, "\0x"s, "\0x\0x"s}, {7, "abc", "abcabca"}, {0, "abc", ""},
    };
    for (const Row& r : rows) {
        std::string out(r.length, '\0');
        kxt::fillRepeating(std::span(reinterpret_cast<uint8_t*>(out.data()), out.size()),
                           r.content);
        EXPECT_EQ(out, r.expected) << r.length << " " << r.content;
    }
    // Long outputs keep the period across the doubling copies.
    std::string big(100003, '\0');
    kxt::fillRepeating(std::span(reinterpret_cast<uint8_t*>(big.data()), big.size()), "xyzzy");
    for (size_t i = 0; i < big.size(); ++i) ASSERT_EQ(big[i], "xyzzy"[i % 5]) << i;
}

TEST(RandomBytes, FollowTheCRandomGeneratorOfTheirThread) {
    std::string out(4000, '\0'), other(out.size(), '\0');
    auto span = [](std::string& s) {
        return std::span(reinterpret_cast<uint8_t*>(s.data()), s.size());
    };
    for (const bool ascii : {true, false}) {
        kxt::seedRandomBytes(ascii ? 99 : 7);
        kxt::fillRandomBytes(span(out), ascii);
        srand(kxt::threadRandomSeed());
        for (size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(uint8_t(out[i]), ascii ? uint8_t(rand() % 96 + 32) : uint8_t(rand())) << i;
        }
    }
    // Another thread starting from the same process seed does not repeat them.
    std::thread([&] { kxt::fillRandomBytes(span(other), false); }).join();
    EXPECT_NE(other, out);
}

// ---- through the host ----

class ByteMethods : public HostTest {};

TEST_F(ByteMethods, MaskOperationsKeepTheFirstOperandsLength) {
    struct Row {
        const char* method;
        std::vector<Value> args;
        std::string expected;
    } rows[] = {
        {"StringANDKXT", {Raw("\xFF\x0F\xF0"), Raw("\x3C")}, "\x3C\x0C\x30"},
        {"StringANDKXT", {Raw("\xFF\xFF\xFF"), Raw("\x80\x81\x82\x83\x84")}, "\x80\x81\x82"},
        {"StringORKXT", {Raw("\x01\x02\x03"), Raw("\x80\x40")}, "\x81\x42\x83"},
        {"StringXORKXT", {Raw("\0\0\0\0\0"s), Raw("\x81\x82\x83")}, "\x81\x82\x83\x81\x82"},
        {"StringXORKXT", {Raw("\0\0\0\0\0"s), Raw("\x81\x82\x83"), I(1)}, "\x82\x83\x81\x82\x83"},
        {"StringXORKXT", {Raw("\0\0\0\0"s), Raw("\x81\x82\x83"), I(-4)}, "\x83\x81\x82\x83"},
        {"StringXOR2KXT", {Raw("\0\0\0\0"s), Raw("\0"s)}, "\x00\x01\x02\x03"s},
        {"StringXOR2KXT", {Raw("\x80\x80"), Raw("\x01\x02"), I(1)}, "\x82\x80"},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(callBytes(r.method, r.args), r.expected) << r.method;
    }
}

TEST_F(ByteMethods, MaskResultsHaveNoEncodingUnlessPureASCII) {
    Value binary = call("StringORKXT", {S("ab"), Raw("\x80")});
    EXPECT_EQ(binary.bytes(), "\xE1\xE2");
    EXPECT_EQ(binary.encoding(), kREALTextEncodingUnknown);
    Value ascii = call("StringANDKXT", {S("\xC3\xA9"), Raw("\x7F")});
    EXPECT_EQ(ascii.bytes(), "\x43\x29");
    EXPECT_EQ(ascii.encoding(), kREALTextEncodingASCII);
    // Long enough for the vector steps: one high byte in a step or in the tail decides the tag.
    struct Row {
        const char* method;
        size_t highAt;  // npos: none
        uint32_t encoding;
    } rows[] = {
        {"StringANDKXT", std::string::npos, kREALTextEncodingASCII},
        {"StringORKXT", std::string::npos, kREALTextEncodingASCII},
        {"StringORKXT", 5, kREALTextEncodingUnknown},
        {"StringORKXT", 20, kREALTextEncodingUnknown},
        {"StringXORKXT", 38, kREALTextEncodingUnknown},
        {"StringXOR2KXT", std::string::npos, kREALTextEncodingASCII},
    };
    for (const Row& r : rows) {
        std::string data(39, 'a');
        if (r.highAt != std::string::npos) data[r.highAt] = char(0xC0);
        Value v = call(r.method, {Raw(data), Raw("\x01\x02\x03")});
        EXPECT_EQ(v.encoding(), r.encoding) << r.method << " " << r.highAt;
    }
}

TEST_F(ByteMethods, MaskOperationsWithAnEmptyOperandGiveNil) {
    for (const char* method : {"StringANDKXT", "StringORKXT", "StringXORKXT", "StringXOR2KXT"}) {
        EXPECT_TRUE(call(method, {S("abc"), Nil()}).isNil()) << method;
        EXPECT_TRUE(call(method, {Nil(), S("abc")}).isNil()) << method;
        EXPECT_TRUE(call(method, {S(""), S("abc")}).isNil()) << method;
    }
}

TEST_F(ByteMethods, ConcatJoinsRawBytesForEveryOverload) {
    const std::string utf16E("\xE9\0", 2);
    Value r = call("ConcatBinaryStringsKXT", {S("\xC3\xA9"), S(utf16E, kREALTextEncodingUTF16)});
    EXPECT_EQ(r.bytes(), "\xC3\xA9\xE9\0"s);
    EXPECT_EQ(r.encoding(), kREALTextEncodingUnknown);
    EXPECT_EQ(callBytes("ConcatBinaryStringsKXT", {S("a"), Nil(), S("c")}), "ac");
    EXPECT_EQ(callBytes("ConcatBinaryStringsKXT", {S("a"), S("b"), S("c"), S("d")}), "abcd");
    EXPECT_EQ(callBytes("ConcatBinaryStringsKXT", {S("a"), S("b"), S("c"), S("d"), S("e")}),
              "abcde");
    EXPECT_EQ(callBytes("ConcatBinaryStringsKXT", {S("a"), S("b"), S("c"), S("d"), S("e"), S("f")}),
              "abcdef");
    EXPECT_TRUE(call("ConcatBinaryStringsKXT", {Nil(), S("")}).isNil());
}

TEST_F(ByteMethods, CreateStringRepeatsContentInItsEncoding) {
    Value r = call("CreateStringKXT", {I(5), S("ab")});
    EXPECT_EQ(r.bytes(), "ababa");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);
    Value latin = call("CreateStringKXT", {I(3), S("\xE9", kREALTextEncodingISOLatin1)});
    EXPECT_EQ(latin.bytes(), "\xE9\xE9\xE9");
    EXPECT_EQ(latin.encoding(), kREALTextEncodingISOLatin1);
    EXPECT_EQ(callBytes("CreateStringKXT", {I(3), Nil()}), "\0\0\0"s);
    EXPECT_EQ(callBytes("CreateStringKXT", {I(2), Raw("\0"s)}), "\0\0"s);
    EXPECT_TRUE(call("CreateStringKXT", {I(0), S("ab")}).isNil());
    EXPECT_TRUE(call("CreateStringKXT", {I(-5), S("ab")}).isNil());
}

TEST_F(ByteMethods, CreateStringThatCannotBeAllocatedRaisesOutOfMemory) {
    for (int64_t length : {int64_t(1) << 50, INT64_MAX - 2}) {
        CallResult r = host().call("CreateStringKXT", {I(length), S("ab")});
        ASSERT_TRUE(r.exception.has_value()) << length;
        EXPECT_EQ(r.exception->className, "OutOfMemoryException");
        EXPECT_EQ(r.exception->message, "Failed to allocate memory.");
        EXPECT_TRUE(r.value.isNil());
    }
}

TEST_F(ByteMethods, RandomBytesAreNewEachCall) {
    Value binary = call("RandomBytesStringKXT", {I(300)});
    EXPECT_EQ(binary.encoding(), kREALTextEncodingUnknown);
    ASSERT_EQ(binary.bytes().size(), 300u);
    EXPECT_NE(call("RandomBytesStringKXT", {I(300)}).bytes(), binary.bytes());

    Value ascii = call("RandomBytesStringKXT", {I(2000), B(true)});
    EXPECT_EQ(ascii.encoding(), kREALTextEncodingASCII);
    ASSERT_EQ(ascii.bytes().size(), 2000u);
    for (char c : ascii.bytes()) {
        ASSERT_GE(uint8_t(c), 32);
        ASSERT_LE(uint8_t(c), 127);
    }
    EXPECT_TRUE(call("RandomBytesStringKXT", {I(0), B(true)}).isNil());
    EXPECT_TRUE(call("RandomBytesStringKXT", {I(int64_t(1) << 50)}).isNil());
}

TEST_F(ByteMethods, ClearStringContentWipesInPlace) {
    Value secret = S("password");
    EXPECT_TRUE(call("ClearStringContentKXT", {secret}).asBoolean());
    EXPECT_EQ(secret.bytes(), std::string(8, '\0'));
    EXPECT_FALSE(call("ClearStringContentKXT", {Nil()}).asBoolean());
    EXPECT_FALSE(call("ClearStringContentKXT", {S("")}).asBoolean());
}

}  // namespace
