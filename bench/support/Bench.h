// What every benchmark program shares: the one emulated host of the program, the sizes, the
// naming scheme the results script reads, and the loops that count bytes and calls.
//
// Names are "layer:what/input/size": layer "host" (a registered method called by name through
// the emulated host, end to end), "plain" (the function beneath it) or "anchor" (a reference
// measured in the same run). The label names the anchor a benchmark is compared with.
#pragma once

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Corpus.h"
#include "MyMemory.h"
#include "XojoHost.h"

namespace bench {

constexpr size_t KiB = 1024, MiB = size_t(1) << 20;
inline const std::vector<size_t> kSizes = {KiB, MiB, 64 * MiB};

std::string sizeName(size_t size);  // "1KiB", "1MiB", "64MiB"

// The program's emulated host, loaded on first use and kept until the program ends.
xhost::Host& host();

// Host values (the host must be alive: call these inside a benchmark body).
xhost::Value text(std::string_view utf8);  // tagged UTF-8
xhost::Value raw(std::string_view bytes);  // no declared encoding, as binary data
xhost::Value utf16Text(std::u16string_view units);
xhost::Value integer(int64_t v);
xhost::Value boolean(bool v);

// Registers "layer:what/input/size" for every size, with a minimum time that fits the size.
using SizedBody = std::function<void(benchmark::State&, size_t size)>;
void add(const std::string& layer, const std::string& what, const std::string& input,
         const std::string& anchor, const std::vector<size_t>& sizes, SizedBody body);
// The same for one benchmark whose "size" is just a name (work of fixed size).
void addOne(const std::string& layer, const std::string& what, const std::string& input,
            const std::string& sizeLabel, const std::string& anchor,
            std::function<void(benchmark::State&)> body);

// Bytes and items (calls) per second.
void account(benchmark::State& state, size_t bytesPerCall);

// Calls `method` once per iteration through the host, with `args`. An exception raised by the
// method, or a nil result when `wantResult`, fails the benchmark: it would measure nothing.
void hostLoop(benchmark::State& state, std::string_view method,
              const std::vector<xhost::Value>& args, size_t bytesPerCall, bool wantResult = true);

// Runs `f` once per iteration and keeps its result from being optimised away. One call runs
// first, outside the timing (as hostLoop's checked call): a big input may be timed only once
// or twice, and the first call of a size pays for mapping memory that later calls reuse.
template <typename F>
void loop(benchmark::State& state, size_t bytesPerCall, F&& f) {
    benchmark::DoNotOptimize(f());
    for ([[maybe_unused]] auto _ : state) {
        auto r = f();
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    account(state, bytesPerCall);
}

// The memcpy anchor of every size: the bandwidth limit of a linear pass, copying into a buffer
// that is already mapped. Also "fresh-buffer": writing a newly allocated buffer of that size.
void addMemcpyAnchor(const std::vector<size_t>& sizes = kSizes);

// A fresh, uninitialised output buffer of n elements, allocated as the handlers allocate their
// results (AllocateMemory: huge pages for large ones).
struct FreeMemory {
    void operator()(void* p) const { FreeMemoryNow(p); }
};
template <typename T>
std::unique_ptr<T[], FreeMemory> freshBuffer(size_t n) {
    return std::unique_ptr<T[], FreeMemory>(
        static_cast<T*>(AllocateMemory(int64_t(n * sizeof(T)))));
}

inline std::span<const uint16_t> asUnits(std::u16string_view s) {
    return {reinterpret_cast<const uint16_t*>(s.data()), s.size()};
}

}  // namespace bench
