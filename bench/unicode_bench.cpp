// Composition, decomposition and accent removal over 1 MiB and 16 MiB of UTF-16 text: accented
// Latin, polytonic Greek and Hangul. Decomposition reads precomposed text, composition reads
// its decomposition (the work each is for).
#include <benchmark/benchmark.h>

#include <string_view>
#include <vector>

#include "MainStringCompose.h"
#include "RemoveAccents.h"

namespace {

using Units = std::vector<uint16_t>;

const std::u16string_view kSamples[] = {
    u"Cr\u00E8me br\u00FBl\u00E9e, fa\u00E7ade, na\u00EFve r\u00E9sum\u00E9, \u00C5ngstr\u00F6m, "
    u"Dvo\u0159\u00E1k, \u0141\u00F3d\u017A, Ti\u1EBFng Vi\u1EC7t c\u00F3 d\u1EA5u. ",
    u"\u1F48\u03B4\u03C5\u03C3\u03C3\u03B5\u03CD\u03C2 \u1F04\u03BD\u03B4\u03C1\u03B1 \u03BC\u03BF"
    u"\u03B9 \u1F14\u03BD\u03BD\u03B5\u03C0\u03B5, \u03BC\u03BF\u1FE6\u03C3\u03B1, \u03C0\u03BF"
    u"\u03BB\u03CD\u03C4\u03C1\u03BF\u03C0\u03BF\u03BD, \u1F43\u03C2 \u03BC\u03AC\u03BB\u03B1 "
    u"\u03C0\u03BF\u03BB\u03BB\u1F70 \u03C0\u03BB\u03AC\u03B3\u03C7\u03B8\u03B7\u0387 ",
    u"\uD55C\uAD6D\uC5B4 \uD14D\uC2A4\uD2B8\uB294 \uC74C\uC808 \uB2E8\uC704\uB85C \uC870\uD569"
    u"\uB429\uB2C8\uB2E4. \uC548\uB155\uD558\uC138\uC694 \uC138\uACC4. ",
};
const char* kSampleNames[] = {"latin", "greek", "hangul"};

Units precomposed(size_t sample, size_t bytes) {
    Units text;
    text.reserve(bytes / 2);
    while (text.size() < bytes / 2) {
        for (char16_t c : kSamples[sample]) {
            if (text.size() == bytes / 2) break;
            text.push_back(c);
        }
    }
    return text;
}

void Decompose(benchmark::State& state) {
    const Units text = precomposed(size_t(state.range(0)), size_t(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decomposeUTF16(text));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(1));
    state.SetLabel(kSampleNames[state.range(0)]);
}

void Compose(benchmark::State& state) {
    const Units text =
        kxt::decomposeUTF16(precomposed(size_t(state.range(0)), size_t(state.range(1))));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::composeUTF16(text));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size() * 2));
    state.SetLabel(kSampleNames[state.range(0)]);
}

void ComposePrecomposed(benchmark::State& state) {
    const Units text = precomposed(size_t(state.range(0)), size_t(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::composeUTF16(text));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(1));
    state.SetLabel(kSampleNames[state.range(0)]);
}

void RemoveAccents(benchmark::State& state) {
    InitTable();
    const Units text = precomposed(size_t(state.range(0)), size_t(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::removeAccentsUTF16(text, false));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(1));
    state.SetLabel(kSampleNames[state.range(0)]);
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->ArgNames({"text", "bytes"});
    for (int64_t sample = 0; sample < 3; ++sample) {
        for (int64_t bytes : {int64_t(1) << 20, int64_t(16) << 20}) b->Args({sample, bytes});
    }
    b->Unit(benchmark::kMillisecond);
}

BENCHMARK(Decompose)->Apply(Sizes);
BENCHMARK(Compose)->Apply(Sizes);
BENCHMARK(ComposePrecomposed)->Apply(Sizes);
BENCHMARK(RemoveAccents)->Apply(Sizes);

}  // namespace
