// Composition, decomposition and accent removal, end to end through the host and as the plain
// UTF-16 functions, against ICU's NFC and NFD on the same text. Decomposition reads
// precomposed text, composition reads its decomposition (the work each is for) and also
// precomposed text (the common case of nothing to do). Run: build/bench/unicode_bench
// (configure with -DKXT_BENCH=ON).
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/translit.h>
#include <unicode/unorm2.h>
#include <utf8proc.h>

#include <cstdlib>
#include <memory>

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

// utf8proc, the small C library many programs use instead of ICU: UTF-8 in, a new UTF-8
// string out (allocated by the library, as in every call of it).
void utf8procMap(benchmark::State& st, const std::string& in, int options) {
    loop(st, in.size(), [&] {
        utf8proc_uint8_t* out = nullptr;
        const utf8proc_ssize_t size =
            utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(in.data()),
                         utf8proc_ssize_t(in.size()), &out, utf8proc_option_t(options));
        free(out);
        return size;
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
            add("host", k.method, input, "icu-" + form + "-utf8|utf8proc-" + form, kSizes,
                [=](auto& st, size_t n) {
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
            add("anchor", "utf8proc-" + form, input, "", kSizes, [=](auto& st, size_t n) {
                utf8procMap(st, *utf8In(n),
                            UTF8PROC_STABLE | (k.compose ? UTF8PROC_COMPOSE : UTF8PROC_DECOMPOSE));
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
        add("anchor", "utf8proc-stripmark", corpusName(c), "", kSizes, [=](auto& st, size_t n) {
            utf8procMap(st, *corpus(c, n), UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_STRIPMARK);
        });
        // ICU's transliterator on its own UTF-16 strings, made outside the timing. About 1 MiB
        // a second: measured up to 1 MiB only (64 MiB would take minutes a call).
        add("anchor", "icu-transliterator", corpusName(c), "", {KiB, MiB}, [=](auto& st, size_t n) {
            UErrorCode err = U_ZERO_ERROR;
            std::unique_ptr<icu::Transliterator> strip(icu::Transliterator::createInstance(
                "NFD; [:Nonspacing Mark:] Remove; NFC", UTRANS_FORWARD, err));
            if (U_FAILURE(err)) return st.SkipWithError("ICU has no such transliterator");
            Units in = utf16(c, n);
            const icu::UnicodeString source(false, in->data(), int32_t(in->size()));
            loop(st, n, [&] {
                icu::UnicodeString s(source);
                strip->transliterate(s);
                return s.length();
            });
        });
        for (bool ignoreCase : {false, true}) {
            const std::string what =
                ignoreCase ? "RemoveAccentsKXT(IgnoreCase)" : "RemoveAccentsKXT";
            add("host", what, corpusName(c), "utf8proc-stripmark|icu-transliterator", kSizes,
                [=](auto& st, size_t n) {
                    Bytes in = corpus(c, n);
                    hostLoop(st, "RemoveAccentsKXT", {text(*in), boolean(ignoreCase)}, n);
                });
        }
        // The UTF-8 form, which the method uses on UTF-8 text.
        add("plain", "kxt::removeAccentsUTF8", corpusName(c),
            "utf8proc-stripmark|icu-transliterator", kSizes, [=](auto& st, size_t n) {
                InitTable();  // the plugin builds it at start; this copy of the code needs it too
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::removeAccentsUTF8(*in, false).size(); });
            });
    }
}

const int registered = [] {
    addMemcpyAnchor();
    normalisation();
    accents();
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
