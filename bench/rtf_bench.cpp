// The StyledText property RTFDataKXT: reading it (the RTF generator) and assigning it (the RTF
// parser), end to end through the host's StyledText, StyleRun and Paragraph objects, and the
// plain generator and parser beneath. Time per byte must not grow with the size. Run:
// build/bench/rtf_bench (configure with -DKXT_BENCH=ON).
#include <random>

#include "Bench.h"
#include "RTFRead.h"
#include "RTFWrite.h"

using namespace bench;
using namespace kxt::rtf;

namespace {

// Counts what the parser hands on without keeping it, so only the parser is measured.
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
    void addUnits(std::u16string_view, int64_t) override {
        if (run_) ++runs;
        run_ = false;
    }
    size_t runs = 0, bytes = 0;

  private:
    bool run_ = false;
};

const char* const kFonts[] = {"Arial", "Times New Roman", "Caf\xC3\xA9 Sans"};

// Runs of 20 to 200 bytes of multilingual text (cut at characters) with changing styles.
std::vector<xhost::RunSpec> runSpecs(size_t size) {
    Bytes text = corpus(Corpus::Multilingual, size);
    std::mt19937 rng(7);
    std::vector<xhost::RunSpec> runs;
    for (size_t pos = 0; pos < text->size();) {
        size_t end = std::min(text->size(), pos + 20 + rng() % 180);
        while (end < text->size() && (uint8_t((*text)[end]) & 0xC0) == 0x80) ++end;
        xhost::RunSpec r;
        r.text = text->substr(pos, end - pos);
        r.font = kFonts[rng() % 3];
        r.size = 10 + int64_t(rng() % 3) * 2;
        r.bold = rng() % 4 == 0;
        r.italic = rng() % 6 == 0;
        r.color = rng() % 5 == 0 ? 0xC00000 : 0;
        runs.push_back(std::move(r));
        pos = end;
    }
    return runs;
}

void generator() {
    add("host", "RTFDataKXT(get)", "styled-multilingual", "plain:kxt::rtf::GenerateRTF", kSizes,
        [](auto& st, size_t n) {
            xhost::Value styled = host().newStyledText(runSpecs(n));
            {
                xhost::CallResult r = host().getRTF(styled);
                if (r.exception || r.value.isNil()) return st.SkipWithError("no RTF came back");
            }
            for ([[maybe_unused]] auto _ : st) {
                xhost::CallResult r = host().getRTF(styled);
                benchmark::DoNotOptimize(r);
            }
            account(st, n);
        });
    add("plain", "kxt::rtf::GenerateRTF", "styled-multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            const auto specs = runSpecs(n);
            std::vector<std::u16string> texts;
            texts.reserve(specs.size());
            std::vector<GeneratorRun> runs;
            std::mt19937 rng(8);
            for (const auto& s : specs) {
                texts.push_back(toUTF16(s.text));
                GeneratorRun r;
                r.text = asUnits(texts.back());
                r.font = s.font;
                r.color = s.color;
                r.size = s.size;
                r.bold = s.bold;
                r.italic = s.italic;
                r.alignment = int64_t(rng() % 3);
                runs.push_back(r);
            }
            loop(st, n, [&] { return GenerateRTF(runs).size(); });
        });
}

void parser() {
    add("host", "RTFDataKXT(set)", "rtf", "plain:kxt::rtf::ParseRTF", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::RTF, n);
            xhost::Value styled = host().newObject("StyledText");
            const xhost::Value rtf = text(*in);
            for ([[maybe_unused]] auto _ : st) {
                xhost::CallResult r = host().setRTF(styled, rtf);
                benchmark::DoNotOptimize(r);
            }
            account(st, n);
        });
    add("plain", "kxt::rtf::ParseRTF", "rtf", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::RTF, n);
        loop(st, n, [&] {
            CountingSink sink;
            ParseRTF(*in, sink);
            return sink.runs;
        });
    });
    // Deep nesting: the group stack must stay linear, plain and with formatting in every group.
    add("plain", "kxt::rtf::ParseRTF", "nested-groups", "memcpy", {MiB, 16 * MiB},
        [](auto& st, size_t n) {
            const size_t depth = (n - 9) / 2;
            const std::string rtf =
                "{\\rtf1 " + std::string(depth, '{') + "x" + std::string(depth, '}') + "}";
            loop(st, rtf.size(), [&] {
                CountingSink sink;
                ParseRTF(rtf, sink);
                return sink.runs;
            });
        });
    add("plain", "kxt::rtf::ParseRTF", "nested-bold-groups", "memcpy", {MiB, 16 * MiB},
        [](auto& st, size_t n) {
            const size_t depth = (n - 9) / 5;
            std::string rtf = "{\\rtf1 ";
            for (size_t i = 0; i < depth; ++i) rtf += "{\\b ";
            rtf += "x" + std::string(depth, '}') + "}";
            loop(st, rtf.size(), [&] {
                CountingSink sink;
                ParseRTF(rtf, sink);
                return sink.runs;
            });
        });
}

const int registered = [] {
    addMemcpyAnchor({KiB, MiB, 16 * MiB, 64 * MiB});
    generator();
    parser();
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
