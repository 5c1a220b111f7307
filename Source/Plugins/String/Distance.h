// Fuzzy-matching measures over code points: Jaro-Winkler and a Levenshtein distance with
// adjacent transpositions (optimal string alignment), both case-sensitive, no normalisation.
#pragma once

#include <cstdint>
#include <span>

#include "XojoPluginABI.h"

namespace kxt {

using CodePoints = std::span<const uint32_t>;

// Jaro-Winkler similarity, 0.0 to 1.0; two empty strings are equal (1.0), one empty is 0.0.
double proximityToString(CodePoints a, CodePoints b);
// 1 - similarity.
double jaroWinklerDistance(CodePoints a, CodePoints b);

// Number of insertions, deletions, substitutions and swaps of two neighbours needed, where no
// part of the text is edited twice. Linear memory (bit-parallel, 64 code points per word).
int64_t osaDistance(CodePoints a, CodePoints b);
// The edit count divided by the shorter length (not capped at 1); 1.0 when either is empty.
double levenshteinDistance(CodePoints a, CodePoints b);

}  // namespace kxt

// Handlers.
double jaroWinklerDistanceKXT(REALstring a, REALstring b);
double levenshteinDistanceKXT(REALstring a, REALstring b);
