#!/usr/bin/env python3
"""Turns the JSON output of the benchmark programs into bench/RESULTS.md (on stdout).

Benchmark names read "layer:what/input/size" (layer host, plain or anchor); the label of a
host or plain benchmark names its anchors ("a|b": the library a user would otherwise call first),
which are looked up in the same program's output for the same input and size (memcpy, whose
speed does not depend on the bytes, for any input). "plain:NAME" names the plain function of the
same input as the anchor (the host's overhead). Every host and plain row is also compared with
memcpy.
"""
import argparse
import datetime
import json
import os
import re
import sys
from collections import OrderedDict

SIZE_ORDER = ["1KiB", "1MiB", "16MiB", "64MiB"]
# Where a target is out of reach through this interface, the share of the ceiling that counts.
CEILING_SHARE = 0.6


def parse_name(name):
    name = re.sub(r"/(min_time|iterations|repeats|real_time)[^/]*", "", name)
    layer, rest = name.split(":", 1)
    what, input_, size = rest.rsplit("/", 2)
    return layer, what, input_, size


def mib(bps):
    return bps / (1 << 20)


def fmt_rate(bps):
    if bps is None:
        return "–"
    v = mib(bps)
    if v >= 10000:
        return f"{v / 1024:.1f} GiB/s"
    if v >= 100:
        return f"{v:.0f} MiB/s"
    if v >= 1:
        return f"{v:.1f} MiB/s"
    return f"{bps / 1024:.1f} KiB/s"


def fmt_calls(ips):
    if ips is None:
        return "–"
    if ips >= 1e6:
        return f"{ips / 1e6:.2f} M/s"
    if ips >= 1e3:
        return f"{ips / 1e3:.1f} k/s"
    return f"{ips:.2f} /s"


def fmt_ratio(r):
    if r is None:
        return "–"
    if r >= 100:
        return f"{r:.0f}"
    if r >= 10:
        return f"{r:.1f}"
    return f"{r:.2f}"


class Result:
    def __init__(self, program, b):
        self.program = program
        self.layer, self.what, self.input, self.size = parse_name(b["name"])
        self.error = b.get("error_message") if b.get("error_occurred") else None
        self.bps = b.get("bytes_per_second") or None
        self.ips = b.get("items_per_second")
        self.anchor = b.get("label") or ""
        self.anchors = [a for a in self.anchor.split("|") if a]
        self.cpu_time = b.get("cpu_time")
        self.time_unit = b.get("time_unit")
        self.iterations = b.get("iterations")
        self.peak = b.get("peak_heap_bytes")
        self.out = b.get("out_bytes")

    def growth(self):
        """Result bytes per input byte of a host call, when known."""
        if self.out is None or not self.bps or not self.ips:
            return None
        return self.out / (self.bps / self.ips)


def load(paths):
    results, contexts = [], {}
    for path in paths:
        program = os.path.basename(path).rsplit(".", 1)[0]
        with open(path) as f:
            data = json.load(f)
        contexts[program] = data.get("context", {})
        for b in data.get("benchmarks", []):
            if b.get("run_type", "iteration") != "iteration":
                continue
            results.append(Result(program, b))
    return results, contexts


def lookup(index, r, name):
    for key in [(r.program, name, r.input, r.size), (r.program, name, "bytes", r.size)]:
        if key in index:
            return index[key]
    return None


def find_anchors(index, r):
    return [(name, lookup(index, r, name)) for name in r.anchors]


def find_anchor(index, r):
    """The first anchor (the primary one)."""
    found = find_anchors(index, r)
    return found[0][1] if found else None


def memcpy_ratio(index, r):
    return ratio(r, lookup(index, r, "memcpy"))


def is_library(name):
    return not (name == "memcpy" or name.startswith("loop-") or name.startswith("plain:")
                or name == "fresh-buffer")


def ratio(r, a):
    if a is None or r.error or a.error:
        return None
    if r.bps and a.bps:
        return r.bps / a.bps
    if r.ips and a.ips:
        return r.ips / a.ips
    return None


# ---- Targets -----------------------------------------------------------------------------------

LINEAR_METHODS = [
    "EncodingToURLKXT", "DecodingFromURLKXT", "EncodingToHexKXT", "DecodingFromHexKXT",
    "_yDecodeStringKXT", "_yDecodeMemoryKXT", "StringANDKXT", "StringORKXT", "StringXORKXT",
    "StringXOR2KXT", "ReplaceNonPrintableCharactersKXT", "IsASCIIStringKXT",
    "ReplaceLineEndingsKXT", "CheckUTF8KXT", "InStrBytesKXT", "InStrByteRangeKXT",
    "CountOccurancesKXT",
]


def base_method(what):
    return what.split("(", 1)[0]


def plain_twin(results, i):
    """The plain row beneath host row results[i]: a row already named as its `plain:` anchor,
    else the first plain row on the same input and size registered after it, before the next
    host row of another method (the benchmarks register a method's host and plain rows
    together)."""
    r = results[i]
    for name in r.anchors:
        if name.startswith("plain:"):
            for p in results:
                if (p.program, p.layer, p.what, p.input, p.size) == (
                        r.program, "plain", name[len("plain:"):], r.input, r.size):
                    return p
    for p in results[i + 1:]:
        if p.program != r.program:
            break
        if p.layer == "host" and base_method(p.what) != base_method(r.what):
            break
        if p.layer == "plain" and p.input == r.input and p.size == r.size:
            return p
    return None


def memcpy_ceiling(r):
    """The best ratio to memcpy a host call can reach by the bytes it must move: memcpy reads
    and writes the input once (2n); the call reads n, writes its k*n result, and the host reads
    and writes that result again into its own string (1 + 3k)."""
    k = r.growth()
    return None if k is None else 2 / (1 + 3 * k)


def copy_ceiling(r, plain, memcpy):
    """The best ratio to the function beneath a host call can reach when the host copies the
    k*n result at memcpy speed besides the function's own time."""
    k = r.growth()
    if k is None or not plain or not plain.bps or not memcpy or not memcpy.bps:
        return None
    t_plain = 1 / plain.bps
    return t_plain / (t_plain + k / memcpy.bps)


def targets(results, index):
    rows = []

    def add(group, r, need, note="", anchor=None, ceiling=None):
        a = find_anchor(index, r) if anchor is None else anchor
        q = ratio(r, a)
        # Where the target is out of reach through this interface, a share of the ceiling counts.
        if ceiling is not None and ceiling < need:
            need, note = CEILING_SHARE * ceiling, f"ceiling {ceiling:.2f}"
        ok = None if q is None else q >= need
        rows.append((group, r, a, q, need, ok, note))

    for r in results:
        if r.layer != "host" or r.size != "64MiB":
            continue
        m = base_method(r.what)
        if m in LINEAR_METHODS:
            if m == "CheckUTF8KXT" and r.input != "multilingual":
                continue  # the target is for valid UTF-8
            if r.input.startswith("periodic"):
                continue  # a worst case for the search, not a realistic input
            add("linear byte transform vs memcpy, end to end, 64 MiB", r, 0.25,
                anchor=lookup(index, r, "memcpy"), ceiling=memcpy_ceiling(r))
    for r in results:
        if r.layer != "host" or r.size != "64MiB":
            continue
        for name, a in find_anchors(index, r):
            if is_library(name) and not name.startswith(("icu-", "iconv-")):
                add("vs the library a user would call, end to end, 64 MiB", r, 1.0, anchor=a)
    for i, r in enumerate(results):
        if r.layer == "host" and r.size == "64MiB":
            p = plain_twin(results, i)
            if p is not None:
                add("host path vs its plain function, 64 MiB", r, CEILING_SHARE, anchor=p,
                    ceiling=copy_ceiling(r, p, lookup(index, r, "memcpy")))
    for r in results:
        if r.size == "64MiB" and r.anchor.startswith("icu-") and r.layer in ("host", "plain"):
            add("composition / decomposition vs ICU", r, 1.0)
    for r in results:
        if r.size == "64MiB" and r.anchor.startswith("iconv-") and r.layer in ("host", "plain"):
            add("ISO-8859-1 / Windows-1252 vs iconv", r, 1.0)
    for r in results:
        if r.size == "2000cp" and r.anchor == "full-matrix":
            add("Levenshtein vs the full matrix, 2,000 code points", r, 50.0)
    return rows


# ---- Output ------------------------------------------------------------------------------------


SMALL_TARGET = 2.0


def small_inputs(w, rows):
    """Calls per second on short texts, each method beside the no-op call and its floor."""
    if not rows:
        return
    noop = {r.size: r for r in rows if r.layer == "anchor" and r.what == "noop"}
    floors = {(r.what[len("floor:"):], r.size): r for r in rows
              if r.layer == "anchor" and r.what.startswith("floor:")}
    methods = OrderedDict()
    for r in rows:
        if r.layer == "host":
            methods.setdefault(r.what, {})[r.size] = r
    base = noop.get("16B")

    def ok(r):
        return r is not None and r.ips and not r.error

    verdicts = {}
    for what, by_size in methods.items():
        r, f = by_size.get("16B"), floors.get((what, "16B"))
        if not (ok(r) and ok(base)):
            continue
        cost = base.ips / r.ips
        floor_cost = base.ips / f.ips if ok(f) else None
        of_floor = r.ips / f.ips if ok(f) else None
        if cost <= SMALL_TARGET:
            verdict = "yes"
        elif floor_cost is not None and floor_cost > SMALL_TARGET:
            verdict = "ceiling" if of_floor >= CEILING_SHARE else "**no**"
        else:
            verdict = "**no**"
        verdicts[what] = (cost, floor_cost, of_floor, verdict)
    met = sum(1 for v in verdicts.values() if v[3] == "yes")
    at_ceiling = sum(1 for v in verdicts.values() if v[3] == "ceiling")
    w("## Small inputs")
    w("")
    w("Xojo code mostly calls these methods on short strings, in loops. Every registered overload")
    w("(and the StyledText property) is called through the host on 16 B and 1 KiB of its usual")
    w("input (`bench/calls_bench.cpp`), beside `NoOpKXT`, the one method of a plugin that only")
    w("returns its argument, loaded into a host of its own (`bench/noop/`). *Cost* is the time of")
    w(f"a call at 16 B over the no-op call's; the target is at most {SMALL_TARGET:g}.")
    w("")
    w("Each overload also has a *floor*: a method of the no-op plugin with the same argument and")
    w("result types that does only what a handler of that shape must do through the host (each")
    w("string or MemoryBlock argument locked, read and unlocked; the result built from the first")
    w("one's bytes), on the same arguments. A method cannot be cheaper than its floor, so where")
    w(f"the floor itself costs more than {SMALL_TARGET:g} no-op calls the target is out of reach,")
    w(f"and the row must reach {CEILING_SHARE:g} of its floor's calls per second instead (*ceiling*).")
    w("")
    if base:
        w(f"No-op call: {fmt_calls(base.ips)} at 16 B"
          + (f", {fmt_calls(noop['1KiB'].ips)} at 1 KiB." if "1KiB" in noop else "."))
        w("")
    w(f"{met + at_ceiling} of {len(verdicts)} methods met at 16 B: {met} within "
      f"{SMALL_TARGET:g}x the no-op call, {at_ceiling} at {CEILING_SHARE:g} of a floor above it.")
    w("")
    w("| method | calls at 16 B | calls at 1 KiB | cost at 16 B | floor cost | of floor | met |")
    w("|---|---|---|---|---|---|---|")
    for what, by_size in methods.items():
        cells = []
        for size in ("16B", "1KiB"):
            r = by_size.get(size)
            cells.append("–" if r is None else f"error: {r.error}" if r.error else
                         fmt_calls(r.ips))
        cost, floor_cost, of_floor, verdict = verdicts.get(what, (None, None, None, "–"))
        num = lambda x: "–" if x is None else f"{x:.2f}"
        w(f"| `{what}` | {cells[0]} | {cells[1]} | {num(cost)} | {num(floor_cost)} | "
          f"{num(of_floor)} | {verdict} |")
    w("")


def cpu_model():
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return "unknown"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--load-start", default="?")
    ap.add_argument("--load-end", default="?")
    ap.add_argument("--seconds", type=int, default=0)
    ap.add_argument("json", nargs="+")
    args = ap.parse_args()

    results, contexts = load(args.json)
    index = {}
    for r in results:
        if r.layer == "anchor":
            index[(r.program, r.what, r.input, r.size)] = r
        elif r.layer == "plain":
            index[(r.program, "plain:" + r.what, r.input, r.size)] = r

    ctx = next(iter(contexts.values()), {})
    # The run started with its first program.
    dates = sorted(c["date"] for c in contexts.values() if c.get("date"))
    date = dates[0] if dates else datetime.datetime.now().isoformat()
    out = []
    w = out.append
    w("# Benchmark results")
    w("")
    w("Written by `scripts/bench.sh` (Google Benchmark, one program per family under `bench/`,")
    w("each with one emulated host created once). Regenerate with `scripts/bench.sh` on a quiet")
    w("machine.")
    w("")
    w("| | |")
    w("|---|---|")
    w(f"| date | {date} |")
    w(f"| machine | {os.cpu_count()} cores (`nproc` {os.sysconf('SC_NPROCESSORS_ONLN')}), "
      f"{cpu_model()}, {ctx.get('mhz_per_cpu', '?')} MHz |")
    w(f"| load average (1, 5, 15 min) | at start {args.load_start}; at end {args.load_end} |")
    w(f"| build | {ctx.get('library_build_type', '?')} libbenchmark; plugin RelWithDebInfo (-O2), "
      f"as shipped |")
    w(f"| run time | {args.seconds // 60} min {args.seconds % 60} s |")
    w("")
    w("**How to read.** *host* rows call the registered method by name through the emulated host")
    w("(argument strings made once, outside the timing; result strings made and released in")
    w("every call, as in Xojo); *plain* rows call the function beneath; *anchor* rows are the")
    w("references, measured in the same program run. Throughput is input bytes per second")
    w("(MiB = 2^20 bytes); for the distances, 4 bytes per code point of both operands. *Ratio* is")
    w("throughput over the anchor's on the same input and size (above 1 is faster); a row with")
    w("several anchors (the libraries a user would otherwise call) has a ratio for each, and")
    w("*vs memcpy* compares with copying the input once. `plain:` anchors are the function")
    w("beneath a host row (what the host path costs). Sizes are the input's; derived inputs")
    w("(encoded text) are cut to that size.")
    w("")

    rows = targets(results, index)
    w("## Targets")
    w("")
    w("| target | benchmark | input | throughput | anchor | anchor throughput | ratio | needed | met |")
    w("|---|---|---|---|---|---|---|---|---|")
    for group, r, a, q, need, ok, note in rows:
        met = "n/a" if ok is None else ("yes" if ok else "**no**")
        needed = f"{need:.2g} ({note})" if note else f"{need:g}"
        w(f"| {group} | {r.layer}: `{r.what}` | {r.input} {r.size} | {fmt_rate(r.bps)} | "
          f"{a.what if a else r.anchor} | {fmt_rate(a.bps if a else None)} | {fmt_ratio(q)} | "
          f"{needed} | {met} |")
    missed = [row for row in rows if row[5] is False]
    by_ceiling = [row for row in rows if row[5] and row[6]]
    w("")
    w(f"{len(rows) - len(missed)} of {len(rows)} target rows met ({len(by_ceiling)} of them "
      f"against their ceiling).")
    w("")
    w("**Ceilings.** Results are written by the plugin and copied by the host (the interface has")
    w("no way to write into a host string), so a call whose result is k times its input moves")
    w("1 + 3k bytes per input byte where memcpy moves 2: its best ratio to memcpy is 2 / (1 + 3k).")
    w("Against the function beneath, the host path pays at least the copy of the result at")
    w("memcpy speed besides the function's time. Where such a ceiling is below the target, the")
    w("row needs 0.6 of the ceiling instead (shown in *needed*); k is measured from each call's")
    w("result.")
    w("")
    memcpy = index.get(("text", "memcpy", "bytes", "64MiB"))
    fresh = index.get(("text", "fresh-buffer", "bytes", "64MiB"))
    if memcpy and fresh and memcpy.bps and fresh.bps:
        w("**What an end-to-end call pays besides its work.** A method that returns a new string")
        w("writes its result into plugin memory and the host copies it into a host string (the")
        w("plugin interface has no way to write into a host string), so each result byte is")
        w("written twice, into memory that is often freshly mapped. Writing a fresh 64 MiB buffer")
        w(f"ran at {fmt_rate(fresh.bps)} in this run ({fresh.bps / memcpy.bps:.2f} of memcpy into")
        w("mapped memory; this machine is a virtual machine, where first touches are costly). The")
        w("plugin and the emulated host ask for transparent huge pages for blocks of 4 MiB and more,")
        w("and the host reuses freed large blocks, which removes most of that cost; what remains is")
        w("the copy and the plugin's own fresh result. Methods that read or return UTF-16/UTF-32")
        w("also pay the host's conversion from and to the UTF-8 of the argument and result.")
        w("")

    small_inputs(w, [r for r in results if r.program == "calls"])

    # The curve of every benchmark over its sizes.
    groups = OrderedDict()
    for r in results:
        if r.program == "calls":
            continue
        groups.setdefault((r.program, r.layer, r.what, r.input), {})[r.size] = r
    sizes_seen = [s for s in SIZE_ORDER if any(s in g for g in groups.values())]
    w("## Every benchmark")
    w("")
    w("Throughput per input size; *64M/1M* is the cost per byte at 64 MiB over that at 1 MiB")
    w("(about 1 when the cost grows with the input; the 1 MiB input often still sits in the")
    w("cache, so values up to 2 to 3 are the price of main memory, not of the algorithm). The")
    w("ratios are taken at 1 MiB (the work itself, mostly in cache) and at the largest size.")
    w("Values of 64M/1M above 3 (bold) come, on this machine, from results of 64 MiB written")
    w("into memory mapped 4 KiB at a time (see the fresh-buffer anchor): the byte-loop anchors,")
    w("which return new standard strings, and functions whose result grows by appending. Work")
    w("of fixed size (number formatting, byte-order marks) and the distances, whose sizes are")
    w("counted in code points, follow in a second table per program.")
    programs = OrderedDict()
    for key, by_size in groups.items():
        programs.setdefault(key[0], []).append((key, by_size))
    for prog, entries in programs.items():
        w("")
        w(f"### {prog}_bench")
        sized = [(k, v) for k, v in entries if any(s in v for s in sizes_seen)]
        other = [(k, v) for k, v in entries if not any(s in v for s in sizes_seen)]
        if sized:
            w("")
            w("| benchmark | input | " + " | ".join(sizes_seen) +
              " | 64M/1M | anchors | ratio 1M | ratio | vs memcpy |")
            w("|---|---|" + "---|" * len(sizes_seen) + "---|---|---|---|---|")
        for (_, layer, what, input_), by_size in sized:
            cells = []
            for s in sizes_seen:
                r = by_size.get(s)
                cells.append("–" if r is None else (f"error: {r.error}" if r.error else
                                                     fmt_rate(r.bps) if r.bps else fmt_calls(r.ips)))
            growth = None
            r1, r64 = by_size.get("1MiB"), by_size.get("64MiB")
            if r1 and r64 and r1.bps and r64.bps and not r1.error and not r64.error:
                growth = r1.bps / r64.bps
            last = by_size[[s for s in sizes_seen if s in by_size][-1]]
            flag = "**" if growth is not None and growth > 3 else ""
            growth_text = f"{flag}{growth:.2f}{flag}" if growth is not None else "–"

            def ratios(r):
                if r is None:
                    return "–"
                return " / ".join(fmt_ratio(ratio(r, a)) for _, a in find_anchors(index, r)) or "–"
            vs_memcpy = "–" if layer == "anchor" else fmt_ratio(memcpy_ratio(index, last))
            w(f"| {layer}: `{what}` | {input_} | " + " | ".join(cells) +
              f" | {growth_text} | {' / '.join(last.anchors)} | {ratios(r1)} |"
              f" {ratios(last)} | {vs_memcpy} |")
        if other:
            w("")
            w("| benchmark | input | size | throughput | calls | anchor | ratio | peak heap |")
            w("|---|---|---|---|---|---|---|---|")
        for (_, layer, what, input_), by_size in other:
            for size, r in by_size.items():
                a = find_anchor(index, r)
                value = f"error: {r.error}" if r.error else fmt_rate(r.bps)
                peak = "–" if r.peak is None else f"{r.peak / 1024:.0f} KiB"
                w(f"| {layer}: `{what}` | {input_} | {size} | {value} | {fmt_calls(r.ips)} | "
                  f"{r.anchor or ''} | {fmt_ratio(ratio(r, a))} | {peak} |")
    w("")
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
