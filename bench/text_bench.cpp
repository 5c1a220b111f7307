// Search and comparison, byte arithmetic and construction, UTF-8 checking and string
// extraction, line endings, tag removal, SQL booleans and number formatting: end to end through
// the host against memcpy, and the vector paths as plain functions against the straightforward
// byte loops they must agree with. Run: build/bench/text_bench (configure with -DKXT_BENCH=ON).
#include <sys/random.h>

#include "Bench.h"
#include "MainInstr.h"
#include "MyMemory.h"
#include "Regex.h"
#include "ReplaceLineEndings.h"
#include "htmltags.h"
#include "numberformat.h"
#include "rbstring.h"
#include "search_reference.h"
#include "sqlboolean.h"
#include "stringcalc.h"

using namespace bench;
using xhost::Value;

namespace {

// ---- Search and comparison ----------------------------------------------------------------------

// Bytes and ranges that prose never holds, so every search reads the whole text.
constexpr const char* kAbsentSet = "\x01\x02~";

void search() {
    const Corpus prose = Corpus::Prose;
    add("anchor", "pcre2-first-of-set", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const Regex set("[\\x01\\x02~]");
        loop(st, n, [&] { return set.find(*in); });
    });
    add("host", "InStrBytesKXT", "prose", "pcre2-first-of-set", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        hostLoop(st, "InStrBytesKXT", {text(*in), text(kAbsentSet)}, n, false);
    });
    add("plain", "kxt::firstOfAny", "prose", "loop-firstOfAny", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        loop(st, n, [&] { return kxt::firstOfAny(*in, kAbsentSet); });
    });
    add("anchor", "loop-firstOfAny", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        loop(st, n, [&] { return ref::firstOfAny(*in, kAbsentSet); });
    });

    // One, two and three ranges; then the same with a byte set and signed ranges.
    const std::vector<std::vector<int64_t>> ranges = {
        {0, 8}, {0, 8, 128, 255}, {0, 8, 128, 255, 14, 31}};
    for (size_t k = 0; k < ranges.size(); ++k) {
        const auto r = ranges[k];
        const std::string what = "InStrByteRangeKXT(" + std::to_string(k + 1) + " ranges)";
        add("host", what, "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            std::vector<Value> args{text(*in)};
            for (int64_t v : r) args.push_back(integer(v));
            hostLoop(st, "InStrByteRangeKXT", args, n, false);
        });
        const std::vector<int64_t> signedRanges = {-128, -1, 0, 8, 14, 31};
        const std::string whatB = "InStrByteRangeKXT(set, " + std::to_string(k + 1) + " ranges)";
        add("host", whatB, "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            std::vector<Value> args{text(*in), text(kAbsentSet)};
            for (size_t i = 0; i < 2 * (k + 1); ++i) args.push_back(integer(signedRanges[i]));
            hostLoop(st, "InStrByteRangeKXT", args, n, false);
        });
    }
    add("plain", "kxt::firstInRanges", "prose", "loop-firstInRanges", kSizes,
        [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            const std::vector<kxt::ByteRange> r{{0, 8}, {128, 255}, {14, 31}};
            loop(st, n, [&] { return kxt::firstInRanges(*in, r); });
        });
    add("anchor", "loop-firstInRanges", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const std::vector<ref::Range> r{{0, 8}, {128, 255}, {14, 31}};
        loop(st, n, [&] { return ref::firstInRanges(*in, r); });
    });
    add("plain", "kxt::firstInSignedRangesOrSet", "prose", "loop-firstInSignedRangesOrSet", kSizes,
        [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            const std::vector<kxt::ByteRange> r{{-128, -1}, {0, 8}, {14, 31}};
            loop(st, n, [&] { return kxt::firstInSignedRangesOrSet(*in, r, kAbsentSet); });
        });
    add("anchor", "loop-firstInSignedRangesOrSet", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const std::vector<ref::Range> r{{-128, -1}, {0, 8}, {14, 31}};
        loop(st, n, [&] { return ref::firstInSignedRangesOrSet(*in, r, kAbsentSet); });
    });

    // Counting a common word, and a needle that almost matches everywhere in periodic text
    // (the restart rule must keep this linear).
    add("host", "CountOccurancesKXT", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        hostLoop(st, "CountOccurancesKXT", {text(*in), text("the")}, n, false);
    });
    add("plain", "kxt::countOccurrences", "prose", "loop-countOccurrences", kSizes,
        [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            loop(st, n, [&] { return kxt::countOccurrences(*in, "the"); });
        });
    add("anchor", "loop-countOccurrences", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        loop(st, n, [&] { return ref::countOccurrences(*in, "the"); });
    });
    add("host", "CountOccurancesKXT", "periodic-a", "memcpy", kSizes, [](auto& st, size_t n) {
        const std::string in(n, 'a');
        hostLoop(st, "CountOccurancesKXT", {text(in), text(std::string(63, 'a') + "b")}, n, false);
    });

    // Comparisons that run to the last byte: equal texts but for the end.
    add("host", "StrCompBytesKXT", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        std::string other = *in;
        other.back() = '#';
        hostLoop(st, "StrCompBytesKXT", {text(*in), text(other)}, n, false);
    });
    add("plain", "kxt::compareBytes", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        std::string other = *in;
        other.back() = '#';
        loop(st, n, [&] { return kxt::compareBytes(*in, other); });
    });
    add("host", "StrCompCharactersKXT", "multilingual", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Multilingual, n);
        std::string other = *in;
        other.back() = '#';
        hostLoop(st, "StrCompCharactersKXT", {text(*in), text(other)}, n, false);
    });
    add("plain", "kxt::compareZeroPadded", "multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            std::string other = *in;
            other.back() = '#';
            loop(st, n, [&] { return kxt::compareZeroPadded(*in, other); });
        });
    add("host", "HasPrefixKXT", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        hostLoop(st, "HasPrefixKXT", {text(*in), text(in->substr(0, n - 1))}, n, false);
    });
    add("plain", "kxt::hasPrefix", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const std::string prefix = in->substr(0, n - 1);
        loop(st, n, [&] { return kxt::hasPrefix(*in, prefix); });
    });
    add("host", "HasPostfixKXT", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        hostLoop(st, "HasPostfixKXT", {text(*in), text(in->substr(1))}, n, false);
    });
    add("plain", "kxt::hasSuffix", "prose", "memcpy", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const std::string suffix = in->substr(1);
        loop(st, n, [&] { return kxt::hasSuffix(*in, suffix); });
    });
    add("anchor", "pcre2-whole-word", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        const Regex word("(?i)\\bzebra\\b");
        loop(st, n, [&] { return word.find(*in); });
    });
    add("host", "ContainsWholeWordKXT", "prose", "pcre2-whole-word", kSizes,
        [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            hostLoop(st, "ContainsWholeWordKXT", {text(*in), text("zebra")}, n, false);
        });
    add("plain", "kxt::containsWholeWord", "prose", "loop-containsWholeWord", kSizes,
        [=](auto& st, size_t n) {
            Bytes in = corpus(prose, n);
            loop(st, n, [&] { return kxt::containsWholeWord(*in, "zebra"); });
        });
    add("anchor", "loop-containsWholeWord", "prose", "", kSizes, [=](auto& st, size_t n) {
        Bytes in = corpus(prose, n);
        loop(st, n, [&] { return ref::containsWholeWord(*in, "zebra"); });
    });
}

// ---- Byte arithmetic and construction -----------------------------------------------------------

const std::string kMask = "0123456789abcdef";

void arithmetic() {
    struct Op {
        const char* method;
        const char* plain;
        ref::MaskOp op;
        void (*run)(std::string_view, std::string_view, uint8_t*);
        bool offset;
    };
    const Op ops[] = {
        {"StringANDKXT", "kxt::maskAND", ref::MaskOp::And,
         [](std::string_view d, std::string_view m, uint8_t* o) { kxt::maskAND(d, m, o); }, false},
        {"StringORKXT", "kxt::maskOR", ref::MaskOp::Or,
         [](std::string_view d, std::string_view m, uint8_t* o) { kxt::maskOR(d, m, o); }, false},
        {"StringXORKXT", "kxt::maskXOR", ref::MaskOp::Xor,
         [](std::string_view d, std::string_view m, uint8_t* o) { kxt::maskXOR(d, m, 0, o); },
         true},
        {"StringXOR2KXT", "kxt::maskXORIndexed", ref::MaskOp::XorIndexed,
         [](std::string_view d, std::string_view m, uint8_t* o) {
             kxt::maskXORIndexed(d, m, 0, o);
         },
         true},
    };
    for (const Op& o : ops) {
        const std::string loopName = std::string("loop-") + (o.plain + 5);
        add("host", o.method, "binary", "memcpy", kSizes, [o](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Binary, n);
            std::vector<Value> args{raw(*in), raw(kMask)};
            if (o.offset) args.push_back(integer(0));
            hostLoop(st, o.method, args, n);
        });
        add("plain", o.plain, "binary", loopName, kSizes, [o](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Binary, n);
            // A fresh result each call, as the handler needs one.
            loop(st, n, [&] {
                auto out = freshBuffer<uint8_t>(n);
                o.run(*in, kMask, out.get());
                return out[n - 1];
            });
        });
        add("anchor", loopName, "binary", "", kSizes, [o](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Binary, n);
            loop(st, n, [&] { return ref::applyMask(*in, kMask, 0, o.op).back(); });
        });
    }

    // Concatenation of 2 to 6 parts that add up to the size.
    for (int parts = 2; parts <= 6; ++parts) {
        add("host", "ConcatBinaryStringsKXT(" + std::to_string(parts) + " parts)", "binary",
            "memcpy", kSizes, [parts](auto& st, size_t n) {
                Bytes in = corpus(Corpus::Binary, n);
                std::vector<Value> args;
                const size_t part = n / size_t(parts);
                for (int i = 0; i < parts; ++i) {
                    const size_t from = size_t(i) * part;
                    args.push_back(raw(in->substr(from, i + 1 == parts ? n - from : part)));
                }
                hostLoop(st, "ConcatBinaryStringsKXT", args, n);
            });
    }
    add("plain", "kxt::concatBytes(2 parts)", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        const std::string_view all(*in);
        loop(st, n, [&] {
            return kxt::concatBytes({all.substr(0, n / 2), all.substr(n / 2)}).size();
        });
    });

    add("host", "CreateStringKXT", "abc", "memcpy", kSizes, [](auto& st, size_t n) {
        hostLoop(st, "CreateStringKXT", {integer(int64_t(n)), text("abc")}, n);
    });
    add("plain", "kxt::fillRepeating", "abc", "memcpy", kSizes, [](auto& st, size_t n) {
        loop(st, n, [&] {
            auto out = freshBuffer<uint8_t>(n);
            kxt::fillRepeating({out.get(), n}, "abc");
            return out[n - 1];
        });
    });
    for (bool ascii : {false, true}) {
        const std::string input = ascii ? "ascii" : "bytes";
        add("host", "RandomBytesStringKXT", input, "getrandom", kSizes,
            [ascii](auto& st, size_t n) {
                hostLoop(st, "RandomBytesStringKXT", {integer(int64_t(n)), boolean(ascii)}, n);
            });
        add("plain", "kxt::fillRandomBytes", input, "getrandom", kSizes,
            [ascii](auto& st, size_t n) {
                loop(st, n, [&] {
                    auto out = freshBuffer<uint8_t>(n);
                    kxt::fillRandomBytes({out.get(), n}, ascii);
                    return out[n - 1];
                });
            });
    }
    // The kernel's generator into a fresh buffer (ASCII output would need one more pass).
    add("anchor", "getrandom", "bytes", "", kSizes, [](auto& st, size_t n) {
        loop(st, n, [&] {
            auto out = freshBuffer<uint8_t>(n);
            for (size_t done = 0; done < n;) {
                const ssize_t got = getrandom(out.get() + done, n - done, 0);
                if (got <= 0) break;
                done += size_t(got);
            }
            return out[n - 1];
        });
    });
    // Wipes in place: the same string every call.
    add("host", "ClearStringContentKXT", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "ClearStringContentKXT", {raw(*in)}, n, false);
    });
}

// ---- UTF-8 checking, ASCII tests, printable strings ---------------------------------------------

void utf8() {
    for (Corpus c : {Corpus::Multilingual, Corpus::Binary}) {
        const std::string input = corpusName(c);
        add("host", "CheckUTF8KXT(string)", input, "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            hostLoop(st, "CheckUTF8KXT", {raw(*in), text("?")}, n);
        });
        add("plain", "kxt::CheckUTF8", input, "loop-repairUTF8", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] {
                std::string out;
                ReserveLarge(out, n + 4096);  // as the handler does
                kxt::CheckUTF8(out, "?", reinterpret_cast<const uint8_t*>(in->data()), n);
                return out.size();
            });
        });
        add("anchor", "loop-repairUTF8", input, "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] { return ref::repairUTF8(*in, "?").size(); });
        });
    }
    add("host", "CheckUTF8KXT(MemoryBlock)", "multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            host();
            hostLoop(st, "CheckUTF8KXT", {Value::memoryBlock(*in), text("?")}, n);
        });
    add("host", "CheckUTF8KXT(ptr)", "multilingual", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Multilingual, n);
        hostLoop(st, "CheckUTF8KXT",
                 {Value::pointer(const_cast<char*>(in->data())), integer(int64_t(n)), text("?")},
                 n);
    });
    add("plain", "kxt::wellFormedPrefixLength", "multilingual", "loop-wellFormedPrefix", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            loop(st, n, [&] { return kxt::wellFormedPrefixLength(*in); });
        });
    add("anchor", "loop-wellFormedPrefix", "multilingual", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Multilingual, n);
        loop(st, n, [&] { return ref::wellFormedPrefix(*in); });
    });

    // Printable ASCII, so every mode reads the whole text.
    for (int mode : {0, 1}) {
        const std::string what = mode == 0 ? "IsASCIIStringKXT(s)" : "IsASCIIStringKXT(s,1)";
        add("host", what, "prose-line", "memcpy", kSizes, [mode](auto& st, size_t n) {
            Bytes in = plainLine(Corpus::Prose, n);
            std::vector<Value> args{text(*in)};
            if (mode) args.push_back(integer(mode));
            hostLoop(st, "IsASCIIStringKXT", args, n, false);
        });
        add("plain", "kxt::isASCIIText(" + std::to_string(mode) + ")", "prose-line",
            "loop-isASCIIText(" + std::to_string(mode) + ")", kSizes, [mode](auto& st, size_t n) {
                Bytes in = plainLine(Corpus::Prose, n);
                loop(st, n, [&] { return kxt::isASCIIText(*in, mode); });
            });
        add("anchor", "loop-isASCIIText(" + std::to_string(mode) + ")", "prose-line", "", kSizes,
            [mode](auto& st, size_t n) {
                Bytes in = plainLine(Corpus::Prose, n);
                loop(st, n, [&] { return ref::isASCIIText(*in, mode); });
            });
    }

    for (Corpus c : {Corpus::Binary, Corpus::Prose}) {
        const std::string input = corpusName(c);
        add("host", "ReplaceNonPrintableCharactersKXT", input, "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "ReplaceNonPrintableCharactersKXT", {raw(*in)}, n);
            });
        add("plain", "kxt::replaceNonPrintable", input, "loop-replaceNonPrintable", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] {
                    auto out = freshBuffer<uint8_t>(n);
                    kxt::replaceNonPrintable(*in, '.', out.get());
                    return out[n - 1];
                });
            });
        add("anchor", "loop-replaceNonPrintable", input, "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] { return ref::replaceNonPrintable(*in, '.').back(); });
        });
    }

    // Printable strings of at least 4 bytes: many short ones in binary data, long ones in text.
    for (Corpus c : {Corpus::Binary, Corpus::Prose}) {
        const std::string input = corpusName(c);
        add("host", "GetStringsFromDataKXT(String)", input, "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "GetStringsFromDataKXT", {raw(*in), integer(4)}, n);
            });
        add("plain", "kxt::stringsInData", input, "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] { return kxt::stringsInData(*in, 4).size(); });
        });
    }
    add("host", "GetStringsFromDataKXT(MemoryBlock)", "binary", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Binary, n);
            host();
            hostLoop(st, "GetStringsFromDataKXT", {Value::memoryBlock(*in), integer(4)}, n);
        });
    add("host", "GetStringsFromDataKXT(ptr)", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "GetStringsFromDataKXT",
                 {Value::pointer(const_cast<char*>(in->data())), integer(int64_t(n)), integer(4)},
                 n);
    });
}

// ---- Clean-up -----------------------------------------------------------------------------------

void cleanup() {
    for (Corpus c : {Corpus::Prose, Corpus::HTML}) {
        add("host", "ReplaceLineEndingsKXT", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "ReplaceLineEndingsKXT", {text(*in), text("\n")}, n);
            });
        add("plain", "kxt::replaceLineEndings", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::replaceLineEndings(*in, "\n", nullptr).size(); });
            });
    }
    add("host", "ReplaceLineEndingsKXT(yield)", "prose", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Prose, n);
        hostLoop(st, "ReplaceLineEndingsKXT", {text(*in), text("\r\n"), boolean(true)}, n);
    });

    add("anchor", "pcre2-remove-tags", "html", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        const Regex tag("<[^>]*>");
        std::string out;
        loop(st, n, [&] { return tag.replaceAll(*in, "", out); });
    });
    add("host", "RemoveHTMLTagsKXT", "html", "pcre2-remove-tags", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        hostLoop(st, "RemoveHTMLTagsKXT", {text(*in)}, n);
    });
    add("host", "RemoveHTMLTagsWithKXT", "html", "pcre2-remove-tags", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::HTML, n);
            hostLoop(st, "RemoveHTMLTagsWithKXT", {text(*in), text(" ")}, n);
        });
    add("plain", "kxt::removeHTMLTags", "html", "pcre2-remove-tags", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::HTML, n);
            loop(st, n, [&] { return kxt::removeHTMLTags(*in).size(); });
        });
    // Two substitutions, as a Xojo user would write them with RegEx (quoted strings aside).
    add("anchor", "pcre2-sql-booleans", "sql", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::SQL, n);
        const Regex isTrue("(?i)\\btrue\\b"), isFalse("(?i)\\bfalse\\b");
        std::string once, twice;
        loop(st, n, [&] {
            const size_t size = isTrue.replaceAll(*in, "1", once);
            return isFalse.replaceAll(std::string_view(once.data(), size), "0", twice);
        });
    });
    add("host", "SQLReplaceBooleanKXT", "sql", "pcre2-sql-booleans", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::SQL, n);
            hostLoop(st, "SQLReplaceBooleanKXT", {text(*in)}, n);
        });
    add("plain", "kxt::sqlReplaceBoolean", "sql", "pcre2-sql-booleans", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::SQL, n);
            loop(st, n, [&] { return kxt::sqlReplaceBoolean(*in).size(); });
        });
}

// ---- Number formatting (fixed-size work: calls per second) --------------------------------------

constexpr double kValues[] = {0.0, 1.5, -273.15, 6.02214076e23, 1.0 / 3.0, 1e-300, 123456789.0};

void numbers() {
    addOne("host", "StrKXT", "doubles", "one", "", [](auto& st) {
        size_t i = 0;
        for ([[maybe_unused]] auto _ : st) {
            auto r = host().call("StrKXT", {xhost::Value::real(kValues[i++ % 7])});
            benchmark::DoNotOptimize(r);
        }
        account(st, 0);
    });
    addOne("plain", "kxt::formatPlainNumber", "doubles", "one", "", [](auto& st) {
        size_t i = 0;
        loop(st, 0, [&] { return kxt::formatPlainNumber(kValues[i++ % 7]).size(); });
    });
    addOne("host", "ScientificStrKXT", "doubles", "one", "", [](auto& st) {
        size_t i = 0;
        for ([[maybe_unused]] auto _ : st) {
            auto r =
                host().call("ScientificStrKXT", {xhost::Value::real(kValues[i++ % 7]), integer(6)});
            benchmark::DoNotOptimize(r);
        }
        account(st, 0);
    });
    addOne("plain", "kxt::formatScientific", "doubles", "one", "", [](auto& st) {
        size_t i = 0;
        loop(st, 0, [&] { return kxt::formatScientific(kValues[i++ % 7], 6).size(); });
    });
}

const int registered = [] {
    addMemcpyAnchor();
    search();
    arithmetic();
    utf8();
    cleanup();
    numbers();
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
