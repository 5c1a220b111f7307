// Byte-wise arithmetic and construction over plain buffers; the widened-mask and vector paths
// against the byte loop of search_reference.h for every mask length and offset.
#include "stringcalc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "search_reference.h"

using namespace std::string_literals;

namespace {

std::string run(ref::MaskOp op, std::string_view data, std::string_view mask, int64_t offset = 0) {
    std::string out(data.size(), '\x55');
    auto* p = reinterpret_cast<uint8_t*>(out.data());
    switch (op) {
        case ref::MaskOp::And:
            kxt::maskAND(data, mask, p);
            break;
        case ref::MaskOp::Or:
            kxt::maskOR(data, mask, p);
            break;
        case ref::MaskOp::Xor:
            kxt::maskXOR(data, mask, offset, p);
            break;
        case ref::MaskOp::XorIndexed:
            kxt::maskXORIndexed(data, mask, offset, p);
            break;
    }
    return out;
}

TEST(MaskOperations, FixedCases) {
    struct Row {
        ref::MaskOp op;
        std::string data, mask;
        int64_t offset;
        std::string expected;
    } rows[] = {
        {ref::MaskOp::And, "\xFF\x0F\xF0", "\x3C", 0, "\x3C\x0C\x30"},
        {ref::MaskOp::Or, "\x01\x02\x03", "\x10\x20", 0, "\x11\x22\x13"},
        {ref::MaskOp::And, "\xFF\xFF", "\x0F\xF0\xAA", 0, "\x0F\xF0"},  // longer mask is cut
        // Offset 1 into a 3-byte mask uses mask bytes 1, 2, 0, 1, 2.
        {ref::MaskOp::Xor, "\0\0\0\0\0"s, "\x01\x02\x03", 1, "\x02\x03\x01\x02\x03"},
        {ref::MaskOp::Xor, "\0\0\0\0"s, "\x01\x02\x03", 4, "\x02\x03\x01\x02"},   // 4 mod 3
        {ref::MaskOp::Xor, "\0\0\0\0"s, "\x01\x02\x03", -1, "\x03\x01\x02\x03"},  // -1 mod 3
        {ref::MaskOp::XorIndexed, "\0\0\0\0"s, "\0"s, 0, "\x00\x01\x02\x03"s},
        {ref::MaskOp::XorIndexed, "\x10\x10"s, "\x01\x02", 1, "\x12\x10"s},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(run(r.op, r.data, r.mask, r.offset), r.expected)
            << int(r.op) << " " << testing::PrintToString(r.data);
    }
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
        const std::string data = ref::adversarialBytes(rng, dataLen);
        const std::string mask = ref::adversarialBytes(rng, maskLen);
        const int64_t offset = int64_t(rng() % 400) - 200;
        for (ref::MaskOp op : ops) {
            const int64_t o = op == ref::MaskOp::And || op == ref::MaskOp::Or ? 0 : offset;
            ASSERT_EQ(run(op, data, mask, o), ref::applyMask(data, mask, o, op))
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

TEST(RandomBytes, FollowTheCRandomGenerator) {
    std::string out(4000, '\0');
    auto span = std::span(reinterpret_cast<uint8_t*>(out.data()), out.size());
    srand(99);
    kxt::fillRandomBytes(span, true);
    srand(99);
    for (size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(uint8_t(out[i]), uint8_t(rand() % 96 + 32)) << i;
        ASSERT_GE(uint8_t(out[i]), 32);
        ASSERT_LE(uint8_t(out[i]), 127);
    }
    srand(7);
    kxt::fillRandomBytes(span, false);
    srand(7);
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(uint8_t(out[i]), uint8_t(rand())) << i;
}

}  // namespace
