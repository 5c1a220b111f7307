// The RTF reader and writer on large documents: time per byte must not grow with the size.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "RTFRead.h"
#include "RTFWrite.h"

namespace {

using namespace kxt::rtf;

// Counts what the reader hands on without keeping it, so only the reader is measured.
class CountingSink : public ParseSink {
  public:
    bool hasRun() const override { return run_; }
    void startRun(const RunStyle&) override { run_ = true; }
    void flush(uint32_t, std::string& buffer, int64_t) override {
        if (!buffer.empty() && run_) {
            ++runs;
            bytes += buffer.size();
        }
        buffer.clear();
        run_ = false;
    }
    void addUnit(uint16_t, int64_t) override {
        if (run_) ++runs;
        run_ = false;
    }
    size_t runs = 0, bytes = 0;

  private:
    bool run_ = false;
};

// A document of the given size in the shape a word processor writes: tables, paragraphs with
// formatting changes, escapes and nested groups.
std::string MakeDocument(size_t size) {
    std::string rtf =
        "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Arial;}{\\f1\\froman Times;}}"
        "{\\colortbl;\\red255\\green0\\blue0;}\\uc0 ";
    const char* pieces[] = {"Lorem ipsum dolor sit amet, ",
                            "{\\b bold} ",
                            "\\i italic\\i0  ",
                            "caf\\'e9 ",
                            "\\u20013 ",
                            "\\par\r\n",
                            "{\\*\\bkmkstart x}",
                            "\\f1\\cf1\\fs28 red ",
                            "\\qc centred\\par ",
                            "{\\{braces\\}} "};
    std::mt19937 rng(1);
    while (rtf.size() < size) rtf += pieces[rng() % std::size(pieces)];
    rtf += "}";
    return rtf;
}

void BM_ReadRTF(benchmark::State& state) {
    std::string rtf = MakeDocument(size_t(state.range(0)));
    for (auto _ : state) {
        CountingSink sink;
        ParseRTF(rtf, sink);
        benchmark::DoNotOptimize(sink.runs);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(rtf.size()));
}
BENCHMARK(BM_ReadRTF)->Arg(1 << 20)->Arg(64 << 20)->Unit(benchmark::kMillisecond);

void BM_ReadDeepNesting(benchmark::State& state) {
    std::string rtf = "{\\rtf1 " + std::string(size_t(state.range(0)), '{') + "x" +
                      std::string(size_t(state.range(0)), '}') + "}";
    for (auto _ : state) {
        CountingSink sink;
        ParseRTF(rtf, sink);
        benchmark::DoNotOptimize(sink.runs);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(rtf.size()));
}
BENCHMARK(BM_ReadDeepNesting)->Arg(1 << 16)->Arg(1 << 22)->Unit(benchmark::kMillisecond);

void BM_ReadDeepFormattedNesting(benchmark::State& state) {
    std::string rtf = "{\\rtf1 ";
    for (int64_t i = 0; i < state.range(0); ++i) rtf += "{\\b ";
    rtf += "x" + std::string(size_t(state.range(0)), '}') + "}";
    for (auto _ : state) {
        CountingSink sink;
        ParseRTF(rtf, sink);
        benchmark::DoNotOptimize(sink.runs);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(rtf.size()));
}
BENCHMARK(BM_ReadDeepFormattedNesting)->Arg(1 << 16)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

// Text of the given number of UTF-16 units in runs of about 40 units with changing styles.
void BM_WriteRTF(benchmark::State& state) {
    const size_t units = size_t(state.range(0));
    std::vector<uint16_t> text(units);
    std::mt19937 rng(2);
    for (auto& u : text) {
        uint32_t r = rng() % 100;
        u = r < 80   ? uint16_t('a' + r % 26)
            : r < 90 ? u' '
            : r < 95 ? 0xE9
            : r < 98 ? 0x4E2D
                     : '\r';
    }
    const char* fonts[] = {"Arial", "Times", "Caf\xC3\xA9"};
    std::vector<GeneratorRun> runs;
    for (size_t pos = 0; pos < units; pos += 40) {
        GeneratorRun r;
        r.text = std::span<const uint16_t>(text).subspan(pos, std::min<size_t>(40, units - pos));
        r.font = fonts[rng() % 3];
        r.color = rng() % 4 == 0 ? 0xFF0000 : 0;
        r.size = 10 + rng() % 3;
        r.bold = rng() & 1;
        r.alignment = rng() % 3;
        runs.push_back(r);
    }
    for (auto _ : state) {
        std::string rtf = GenerateRTF(runs);
        benchmark::DoNotOptimize(rtf.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(units * 2));
}
BENCHMARK(BM_WriteRTF)->Arg(1 << 19)->Arg(32 << 20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
