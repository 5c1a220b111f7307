#!/usr/bin/env python3
"""Writes the plugin's Unicode tables from the Unicode Character Database.

Usage: generate_unicode_tables.py [--ucd UnicodeData.txt] [--out DIR]

Outputs (into DIR, by default this script's folder):
  UnicodeTables.h        declarations and counts
  DecompositionTable.cpp every BMP code point whose canonical decomposition (full, i.e. NFD) is
                         two or more UTF-16 units, with that NFD; plus an index of the entries by
                         their first two units, for composition
  AccentOverrides.cpp    the replacement units of accent removal that differ from the identity

Nobody edits the outputs by hand: change this script and regenerate
(cmake --build BUILD --target regenerate-unicode-tables), and review the diff.
"""

import argparse
import os
import sys

HANGUL_FIRST, HANGUL_LAST = 0xAC00, 0xD7A3
L_BASE, V_BASE, T_BASE = 0x1100, 0x1161, 0x11A7
V_COUNT, T_COUNT = 21, 28

# Accent removal: the code points whose replacement is their base letter (the first code point
# of their NFD), as inclusive ranges. Those in EXCEPTIONS have no canonical decomposition and
# get the value given there instead.
ACCENT_RANGES = [
    (0x00A0, 0x00A0), (0x00C0, 0x00C5), (0x00C7, 0x00D6), (0x00D8, 0x00E5), (0x00E7, 0x00F6),
    (0x00F8, 0x010F), (0x0112, 0x0125), (0x0128, 0x0130), (0x0134, 0x0137), (0x0139, 0x013E),
    (0x0141, 0x0148), (0x014C, 0x0151), (0x0154, 0x0165), (0x0168, 0x017E), (0x01A0, 0x01A1),
    (0x01AF, 0x01B0), (0x01CD, 0x01DC), (0x01DE, 0x01E1), (0x01E6, 0x01ED), (0x01F0, 0x01F0),
    (0x01F4, 0x01F5), (0x01F8, 0x01FB), (0x0200, 0x021B), (0x021E, 0x021F), (0x0226, 0x0233),
    (0x037E, 0x037E),
    # Greek
    (0x0386, 0x0386), (0x0388, 0x038A), (0x038C, 0x038C), (0x038E, 0x0390), (0x03AA, 0x03B0),
    (0x03CA, 0x03CE),
    (0x1E00, 0x1E99), (0x1E9E, 0x1E9E), (0x1EA0, 0x1EF9),
    # Greek extended
    (0x1F00, 0x1F15), (0x1F18, 0x1F1D), (0x1F20, 0x1F45), (0x1F48, 0x1F4D), (0x1F50, 0x1F57),
    (0x1F59, 0x1F59), (0x1F5B, 0x1F5B), (0x1F5D, 0x1F5D), (0x1F5F, 0x1F7D), (0x1F80, 0x1FB4),
    (0x1FB6, 0x1FBC), (0x1FBE, 0x1FBE), (0x1FC2, 0x1FC4), (0x1FC6, 0x1FCC), (0x1FD0, 0x1FD3),
    (0x1FD6, 0x1FDB), (0x1FE0, 0x1FEC), (0x1FEF, 0x1FEF), (0x1FF2, 0x1FF4), (0x1FF6, 0x1FFC),
    (0x2013, 0x2014), (0x2018, 0x2019), (0x2022, 0x2022), (0x2126, 0x2126), (0x212A, 0x212B),
    (0x2260, 0x2260), (0x226E, 0x226F),
    (0xFF01, 0xFF5E),
]
ACCENT_EXCEPTIONS = {
    0x00A0: 0x20,       # no-break space
    0x00D0: ord('D'),   # eth
    0x00D8: ord('O'),   # O with stroke
    0x00DE: ord('P'),   # thorn
    0x00DF: ord('s'),   # sharp s
    0x00F0: ord('d'),
    0x00F8: ord('o'),
    0x00FE: ord('p'),
    0x0141: ord('L'),   # L with stroke
    0x0142: ord('l'),
    0x1E9E: ord('S'),   # capital sharp s
    0x2013: ord('-'),   # en dash
    0x2014: ord('-'),   # em dash
    0x2018: ord("'"),   # single quotation marks
    0x2019: ord("'"),
    0x2022: ord('*'),   # bullet
}
FULLWIDTH_FIRST, FULLWIDTH_LAST = 0xFF01, 0xFF5E  # take their <wide> compatibility mapping

EXPECTED_ENTRIES = 12197
EXPECTED_OVERRIDES = 844


def read_ucd(path):
    canonical, wide = {}, {}
    with open(path, encoding='utf-8') as f:
        for line in f:
            fields = line.rstrip('\n').split(';')
            if len(fields) < 6 or not fields[5]:
                continue
            cp = int(fields[0], 16)
            mapping = fields[5].split()
            if mapping[0] == '<wide>':
                wide[cp] = [int(x, 16) for x in mapping[1:]]
            elif not mapping[0].startswith('<'):
                canonical[cp] = [int(x, 16) for x in mapping]
    return canonical, wide


def nfd(cp, canonical):
    if HANGUL_FIRST <= cp <= HANGUL_LAST:
        s = cp - HANGUL_FIRST
        parts = [L_BASE + s // (V_COUNT * T_COUNT), V_BASE + (s % (V_COUNT * T_COUNT)) // T_COUNT]
        if s % T_COUNT:
            parts.append(T_BASE + s % T_COUNT)
        return parts
    if cp not in canonical:
        return [cp]
    out = []
    for part in canonical[cp]:
        out += nfd(part, canonical)
    return out


def utf16(code_points):
    units = []
    for cp in code_points:
        if cp >= 0x10000:
            cp -= 0x10000
            units += [0xD800 + (cp >> 10), 0xDC00 + (cp & 0x3FF)]
        else:
            units.append(cp)
    return units


def decomposition_entries(canonical):
    entries = []
    for cp in range(0x10000):
        if 0xD800 <= cp <= 0xDFFF:
            continue
        parts = utf16(nfd(cp, canonical))
        if len(parts) >= 2:  # singletons and unchanged code points stay out
            assert len(parts) <= 4, hex(cp)
            entries.append((cp, parts))
    return entries


def composition_index(entries):
    """Entry numbers grouped by their first two units (ascending), table order kept inside each
    group, so the first matching entry is the first in its group that matches."""
    groups = {}
    for number, (_, parts) in enumerate(entries):
        groups.setdefault((parts[0] << 16) | parts[1], []).append(number)
    keys = sorted(groups)
    order, starts = [], []
    for key in keys:
        starts.append(len(order))
        order += groups[key]
    starts.append(len(order))
    return keys, starts, order


def accent_overrides(canonical, wide):
    ranges, values = [], []
    for first, last in ACCENT_RANGES:
        ranges.append((first, last, len(values)))
        for cp in range(first, last + 1):
            if cp in ACCENT_EXCEPTIONS:
                assert cp not in canonical, hex(cp)
                values.append(ACCENT_EXCEPTIONS[cp])
            elif FULLWIDTH_FIRST <= cp <= FULLWIDTH_LAST:
                assert len(wide[cp]) == 1, hex(cp)
                values.append(wide[cp][0])
            else:
                base = nfd(cp, canonical)
                assert base != [cp], 'no canonical decomposition: %04X' % cp
                values.append(base[0])
    return ranges, values


def hex_list(values, width, per_line, indent='    '):
    fmt = '0x%0' + str(width) + 'X'
    lines = []
    for i in range(0, len(values), per_line):
        lines.append(indent + ', '.join(fmt % v for v in values[i:i + per_line]) + ',')
    return '\n'.join(lines)


BANNER = '// Generated by generate_unicode_tables.py from UnicodeData.txt. Do not edit.\n'


def write_header(entries, keys, ranges, values):
    return BANNER + '''#pragma once

#include <cstddef>
#include <cstdint>

namespace kxt {

// A precomposed BMP code point and its full canonical decomposition in UTF-16, ended by the
// first 0 (the fifth slot is always 0).
struct DecompositionEntry {
    uint16_t composed;
    uint16_t parts[5];
};

inline constexpr size_t kDecompositionCount = %d;
// Ascending by composed code point.
extern const DecompositionEntry DecompositionTable[kDecompositionCount];

// The entries grouped by their first two units: CompositionPairKeys holds (parts[0] << 16) |
// parts[1] ascending; group g lists the entry numbers CompositionOrder[CompositionPairStart[g]]
// up to CompositionOrder[CompositionPairStart[g + 1]], in table order.
inline constexpr size_t kCompositionPairCount = %d;
extern const uint32_t CompositionPairKeys[kCompositionPairCount];
extern const uint16_t CompositionPairStart[kCompositionPairCount + 1];
extern const uint16_t CompositionOrder[kDecompositionCount];

// Accent removal: the units first..last are replaced by AccentOverrideValues[valueIndex + (unit -
// first)]; every other unit stays itself.
struct AccentOverrideRange {
    uint16_t first;
    uint16_t last;
    uint16_t valueIndex;
};
inline constexpr size_t kAccentOverrideRangeCount = %d;
inline constexpr size_t kAccentOverrideCount = %d;
extern const AccentOverrideRange AccentOverrideRanges[kAccentOverrideRangeCount];
extern const uint16_t AccentOverrideValues[kAccentOverrideCount];

}  // namespace kxt
''' % (len(entries), len(keys), len(ranges), len(values))


def write_decomposition(entries, keys, starts, order):
    rows = []
    for cp, parts in entries:
        slots = parts + [0] * (5 - len(parts))
        rows.append('    {0x%04X, {%s}},' % (cp, ', '.join('0x%04X' % p for p in slots)))
    return BANNER + '''#include "UnicodeTables.h"

namespace kxt {

const DecompositionEntry DecompositionTable[kDecompositionCount] = {
%s
};

const uint32_t CompositionPairKeys[kCompositionPairCount] = {
%s
};

const uint16_t CompositionPairStart[kCompositionPairCount + 1] = {
%s
};

const uint16_t CompositionOrder[kDecompositionCount] = {
%s
};

}  // namespace kxt
''' % ('\n'.join(rows), hex_list(keys, 8, 6), hex_list(starts, 4, 10), hex_list(order, 4, 10))


def write_accents(ranges, values):
    rows = ['    {0x%04X, 0x%04X, %d},' % r for r in ranges]
    return BANNER + '''#include "UnicodeTables.h"

namespace kxt {

const AccentOverrideRange AccentOverrideRanges[kAccentOverrideRangeCount] = {
%s
};

const uint16_t AccentOverrideValues[kAccentOverrideCount] = {
%s
};

}  // namespace kxt
''' % ('\n'.join(rows), hex_list(values, 4, 10))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--ucd', default='/usr/share/unicode/UnicodeData.txt')
    parser.add_argument('--out', default=here)
    args = parser.parse_args()

    canonical, wide = read_ucd(args.ucd)
    entries = decomposition_entries(canonical)
    if len(entries) != EXPECTED_ENTRIES:
        sys.exit('expected %d decomposition entries, got %d' % (EXPECTED_ENTRIES, len(entries)))
    keys, starts, order = composition_index(entries)
    ranges, values = accent_overrides(canonical, wide)
    if len(values) != EXPECTED_OVERRIDES:
        sys.exit('expected %d accent overrides, got %d' % (EXPECTED_OVERRIDES, len(values)))

    os.makedirs(args.out, exist_ok=True)
    outputs = {
        'UnicodeTables.h': write_header(entries, keys, ranges, values),
        'DecompositionTable.cpp': write_decomposition(entries, keys, starts, order),
        'AccentOverrides.cpp': write_accents(ranges, values),
    }
    for name, text in outputs.items():
        with open(os.path.join(args.out, name), 'w', encoding='utf-8', newline='\n') as f:
            f.write(text)


if __name__ == '__main__':
    main()
