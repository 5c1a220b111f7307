// Composition, decomposition and accent removal, end to end through the host and as the plain
// UTF-16 functions, against ICU's NFC and NFD on the same text. Decomposition reads
// precomposed text, composition reads its decomposition (the work each is for) and also
// precomposed text (the common case of nothing to do). Run: build/bench/unicode_bench
// (configure with -DKXT_BENCH=ON).
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/unorm2.h>

#include "Bench.h"
#include "MainStringCompose.h"
#include "RemoveAccents.h"

using namespace bench;

namespace {

const icu::Normalizer2* normalizer(bool compose) {
    UErrorCode err = U_ZERO_ERROR;
    const icu::Normalizer2* n =
        compose ? icu::Normalizer2::getNFCInstance(err) : icu::Normalizer2::getNFDInstance(err);
    return U_SUCCESS(err) ? n : nullptr;
}

// ICU at its best: output buffers are made and mapped once, outside the timing.

// From UTF-8 to UTF-8: the work of an end-to-end call.
void icuUTF8(benchmark::State& st, bool compose, const std::string& in) {
    const icu::Normalizer2* n = normalizer(compose);
    if (n == nullptr) return st.SkipWithError("ICU has no normaliser");
    std::string out(in.size() * 3, '\0');
    loop(st, in.size(), [&] {
        out.clear();  // keeps the capacity
        icu::StringByteSink<std::string> sink(&out);
        UErrorCode err = U_ZERO_ERROR;
        n->normalizeUTF8(0, icu::StringPiece(in.data(), int32_t(in.size())), sink, nullptr, err);
        return out.size();
    });
}

// From UTF-16 to UTF-16: the work of the plain function.
void icuUTF16(benchmark::State& st, bool compose, const std::u16string& in, size_t bytes) {
    UErrorCode err = U_ZERO_ERROR;
    const UNormalizer2* n = compose ? unorm2_getNFCInstance(&err) : unorm2_getNFDInstance(&err);
    if (U_FAILURE(err)) return st.SkipWithError("ICU has no normaliser");
    const int32_t capacity = int32_t(in.size() * (compose ? 1 : 3) + 16);
    std::u16string out(size_t(capacity), u'\0');
    loop(st, bytes, [&] {
        UErrorCode e = U_ZERO_ERROR;
        return unorm2_normalize(n, in.data(), int32_t(in.size()),
                                reinterpret_cast<UChar*>(out.data()), capacity, &e);
    });
}

void normalisation() {
    // (method, plain function, input kind, compose?, decomposed input?)
    struct Case {
        const char* method;
        const char* plain;
        bool compose;
        bool decomposedInput;
    };
    const Case cases[] = {
        {"ConvertUnicodeToCharacterCompositionKXT", "kxt::composeUTF16", true, true},
        {"ConvertUnicodeToCharacterCompositionKXT", "kxt::composeUTF16", true, false},
        {"ConvertUnicodeToCharacterDecompositionKXT", "kxt::decomposeUTF16", false, false},
    };
    for (Corpus c : {Corpus::Multilingual, Corpus::Western}) {
        for (const Case& k : cases) {
            const std::string input = corpusName(c) + std::string(k.decomposedInput ? "-nfd" : "");
            const std::string form = k.compose ? "nfc" : "nfd";
            auto utf8In = [c, k](size_t n) {
                return k.decomposedInput ? decomposedUTF8(c, n) : corpus(c, n);
            };
            auto utf16In = [c, k](size_t n) {
                return k.decomposedInput ? decomposedUTF16(c, n) : utf16(c, n);
            };
            add("host", k.method, input, "icu-" + form + "-utf8", kSizes, [=](auto& st, size_t n) {
                Bytes in = utf8In(n);
                hostLoop(st, k.method, {text(*in)}, in->size());
            });
            add("plain", k.plain, input, "icu-" + form + "-utf16", kSizes, [=](auto& st, size_t n) {
                Units in = utf16In(n);
                // Bytes of the UTF-8 text, so plain and host figures compare.
                const size_t bytes = utf8In(n)->size();
                loop(st, bytes, [&] {
                    return k.compose ? kxt::composeUTF16(asUnits(*in)).size()
                                     : kxt::decomposeUTF16(asUnits(*in)).size();
                });
            });
            add("anchor", "icu-" + form + "-utf8", input, "", kSizes, [=](auto& st, size_t n) {
                Bytes in = utf8In(n);
                icuUTF8(st, k.compose, *in);
            });
            add("anchor", "icu-" + form + "-utf16", input, "", kSizes, [=](auto& st, size_t n) {
                Units in = utf16In(n);
                icuUTF16(st, k.compose, *in, utf8In(n)->size());
            });
        }
    }
}

void accents() {
    for (Corpus c : {Corpus::Multilingual, Corpus::Western}) {
        for (bool ignoreCase : {false, true}) {
            const std::string what =
                ignoreCase ? "RemoveAccentsKXT(IgnoreCase)" : "RemoveAccentsKXT";
            add("host", what, corpusName(c), "", kSizes, [=](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "RemoveAccentsKXT", {text(*in), boolean(ignoreCase)}, n);
            });
        }
        add("plain", "kxt::removeAccentsUTF16", corpusName(c), "", kSizes, [=](auto& st, size_t n) {
            InitTable();  // the plugin builds it at start; this copy of the code needs it too
            Units in = utf16(c, n);
            loop(st, n, [&] { return kxt::removeAccentsUTF16(asUnits(*in), false).size(); });
        });
    }
}

const int registered = [] {
    normalisation();
    accents();
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
