// Encoders and decoders on 1 MiB and 64 MiB inputs: the throughput should not drop with size.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "Hexencoding.h"
#include "ISOencoding.h"
#include "hexstring.h"
#include "htmlencoding.h"
#include "quotedprintable.h"
#include "stringdetect.h"
#include "xmlencoding.h"

namespace {

// Mixed text: mostly ASCII words, markup, blanks, line ends, Latin-1 and CJK characters.
const std::vector<uint32_t>& sampleText(size_t count) {
    static std::vector<uint32_t> text;
    if (text.size() != count) {
        std::mt19937 rng(64);
        const std::u32string pieces[] = {U"word ",        U"&",    U"<b>",
                                         U"it's ",        U"\r\n", U"\u00E9t\u00E9 ",
                                         U"\u4E2D\u6587", U"x\ty "};
        text.clear();
        text.reserve(count);
        while (text.size() < count) {
            for (char32_t c : pieces[rng() % std::size(pieces)]) text.push_back(c);
        }
        text.resize(count);
    }
    return text;
}

const std::string& sampleBytes(size_t count) {
    static std::string bytes;
    if (bytes.size() != count) {
        std::mt19937 rng(65);
        bytes.resize(count);
        for (char& c : bytes) c = rng() % 4 == 0 ? char(rng()) : "text =\r\n"[rng() % 8];
    }
    return bytes;
}

void sizes(benchmark::internal::Benchmark* b) {
    b->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond)->Iterations(2);
}

void BM_EncodeHTML(benchmark::State& state) {
    const auto& text = sampleText(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::encodeHTML(text, false));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EncodeHTML)->Apply(sizes);

void BM_DecodeHTML(benchmark::State& state) {
    std::string encoded = kxt::encodeHTML(sampleText(size_t(state.range(0))), false);
    std::vector<uint32_t> text(encoded.begin(), encoded.end());
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeHTML(text));
    state.SetItemsProcessed(state.iterations() * int64_t(text.size()));
}
BENCHMARK(BM_DecodeHTML)->Apply(sizes);

// Worst case for the named lookup: references that match no name.
void BM_DecodeHTMLUnknownReferences(benchmark::State& state) {
    std::vector<uint32_t> text;
    const std::u32string unknown = U"&sxyzwq;";
    while (text.size() < size_t(state.range(0)))
        text.insert(text.end(), unknown.begin(), unknown.end());
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeHTML(text));
    state.SetItemsProcessed(state.iterations() * int64_t(text.size()));
}
BENCHMARK(BM_DecodeHTMLUnknownReferences)->Apply(sizes);

void BM_EncodeXML(benchmark::State& state) {
    const auto& text = sampleText(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::encodeXML(text, 0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EncodeXML)->Apply(sizes);

void BM_EncodeQuotedPrintable(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::encodeQuotedPrintable(bytes, 72));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EncodeQuotedPrintable)->Apply(sizes);

void BM_DecodeQuotedPrintable(benchmark::State& state) {
    std::string encoded = kxt::encodeQuotedPrintable(sampleBytes(size_t(state.range(0))), 72);
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeQuotedPrintable(encoded));
    state.SetBytesProcessed(state.iterations() * int64_t(encoded.size()));
}
BENCHMARK(BM_DecodeQuotedPrintable)->Apply(sizes);

void BM_HexRoundTrip(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeHex(kxt::encodeHex(bytes)));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HexRoundTrip)->Apply(sizes);

void BM_Hexstring(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    kxt::HexLayout layout{2, 16, "", "\n", " ", ""};
    for (auto _ : state) benchmark::DoNotOptimize(kxt::hexstring(bytes, layout));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Hexstring)->Apply(sizes);

void BM_DecodeMySQL(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeMySQL(bytes));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DecodeMySQL)->Apply(sizes);

void BM_EncodeCP1252(benchmark::State& state) {
    const auto& text = sampleText(size_t(state.range(0)));
    std::vector<uint16_t> units(text.begin(), text.end());
    for (auto _ : state) benchmark::DoNotOptimize(kxt::encodeCodePage(units, kxt::CP1252));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EncodeCP1252)->Apply(sizes);

void BM_DecodeCP1252(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::decodeCodePage(bytes, kxt::CP1252));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_DecodeCP1252)->Apply(sizes);

void BM_EncodeEmailSubject(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::encodeEmailSubject(bytes));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EncodeEmailSubject)->Apply(sizes);

void BM_YDecode(benchmark::State& state) {
    const auto& bytes = sampleBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(kxt::yDecode(bytes));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_YDecode)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
