#include "Bench.h"

#include <cstdlib>

namespace bench {

std::string sizeName(size_t size) {
    if (size >= MiB && size % MiB == 0) return std::to_string(size / MiB) + "MiB";
    if (size >= KiB && size % KiB == 0) return std::to_string(size / KiB) + "KiB";
    return std::to_string(size) + "B";
}

xhost::Host& host() {
    static xhost::Host instance;
    return instance;
}

xhost::Value text(std::string_view utf8) {
    host();
    return xhost::Value::string(utf8, kREALTextEncodingUTF8);
}
xhost::Value raw(std::string_view bytes) {
    host();
    return xhost::Value::string(bytes, kREALTextEncodingUnknown);
}
xhost::Value utf16Text(std::u16string_view units) {
    host();
    return xhost::Value::string(
        std::string_view(reinterpret_cast<const char*>(units.data()), units.size() * 2),
        kREALTextEncodingUTF16);
}
xhost::Value integer(int64_t v) {
    return xhost::Value::integer(v);
}
xhost::Value boolean(bool v) {
    return xhost::Value::boolean(v);
}

namespace {

// KXT_BENCH_TIME scales every minimum time (0.1 for a quick look, 1 for the table).
double timeScale() {
    static const double scale = [] {
        const char* s = std::getenv("KXT_BENCH_TIME");
        const double v = s ? std::atof(s) : 1.0;
        return v > 0 ? v : 1.0;
    }();
    return scale;
}

double minTimeFor(size_t size) {
    // Enough calls for a stable figure on small inputs; a few calls on 64 MiB.
    return (size >= 16 * MiB ? 0.5 : size >= MiB ? 0.1 : 0.05) * timeScale();
}

}  // namespace

void add(const std::string& layer, const std::string& what, const std::string& input,
         const std::string& anchor, const std::vector<size_t>& sizes, SizedBody body) {
    for (size_t size : sizes) {
        const std::string name = layer + ":" + what + "/" + input + "/" + sizeName(size);
        auto* b = benchmark::RegisterBenchmark(name.c_str(),
                                               [body, size, anchor](benchmark::State& state) {
                                                   body(state, size);
                                                   if (!anchor.empty()) state.SetLabel(anchor);
                                               });
        b->Unit(size >= MiB ? benchmark::kMillisecond : benchmark::kMicrosecond)
            ->MinTime(minTimeFor(size));
    }
}

void addOne(const std::string& layer, const std::string& what, const std::string& input,
            const std::string& sizeLabel, const std::string& anchor,
            std::function<void(benchmark::State&)> body) {
    const std::string name = layer + ":" + what + "/" + input + "/" + sizeLabel;
    auto* b = benchmark::RegisterBenchmark(name.c_str(), [body, anchor](benchmark::State& state) {
        body(state);
        if (!anchor.empty()) state.SetLabel(anchor);
    });
    b->Unit(benchmark::kMicrosecond)->MinTime(minTimeFor(KiB));
}

void account(benchmark::State& state, size_t bytesPerCall) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytesPerCall));
    state.SetItemsProcessed(int64_t(state.iterations()));
}

void hostLoop(benchmark::State& state, std::string_view method,
              const std::vector<xhost::Value>& args, size_t bytesPerCall, bool wantResult) {
    xhost::Host& h = host();
    {
        // One checked call first, outside the timing.
        xhost::CallResult r = h.call(method, args);
        if (r.exception) {
            state.SkipWithError((std::string(method) + " raised " + r.exception->className + ": " +
                                 r.exception->message)
                                    .c_str());
            return;
        }
        if (wantResult && r.value.isNil()) {
            state.SkipWithError((std::string(method) + " gave nil").c_str());
            return;
        }
        // The result's size, from which the report derives what a call must move.
        using T = xhost::Value::Type;
        if (!r.value.isNil() && (r.value.type() == T::String || r.value.type() == T::MemoryBlock)) {
            state.counters["out_bytes"] = double(r.value.bytes().size());
        }
    }
    for ([[maybe_unused]] auto _ : state) {
        xhost::CallResult r = h.call(method, args);
        benchmark::DoNotOptimize(r);
    }
    account(state, bytesPerCall);
}

void addMemcpyAnchor(const std::vector<size_t>& sizes) {
    add("anchor", "memcpy", "bytes", "", sizes, [](benchmark::State& state, size_t size) {
        Bytes in = corpus(Corpus::Binary, size);
        std::unique_ptr<char[]> out(new char[size]);
        std::memset(out.get(), 0, size);
        for ([[maybe_unused]] auto _ : state) {
            std::memcpy(out.get(), in->data(), size);
            benchmark::DoNotOptimize(out.get());
            benchmark::ClobberMemory();
        }
        account(state, size);
    });
    // What any new result of that size costs before a byte is computed: fresh memory, mapped
    // on first touch.
    add("anchor", "fresh-buffer", "bytes", "", sizes, [](benchmark::State& state, size_t size) {
        for ([[maybe_unused]] auto _ : state) {
            std::unique_ptr<char[]> out(new char[size]);  // the C++ allocator, as is
            std::memset(out.get(), 'x', size);
            benchmark::DoNotOptimize(out.get());
            benchmark::ClobberMemory();
        }
        account(state, size);
    });
}

}  // namespace bench
