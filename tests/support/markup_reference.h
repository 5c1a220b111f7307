// The straightforward HTML encoding: a linear search of the entity table for every character.
// What the indexed encoder must agree with, in the tests and in the markup fuzzer.
#pragma once

#include <cstdint>
#include <string>

#include "htmlencoding.h"

namespace ref {

// Code points in (any container of integers). Plain: named references only for the table's
// code points above 127 (its ASCII entries come first) and the apostrophe kept as it is.
template <typename CodePoints>
std::string encodeHTML(const CodePoints& in, bool plain) {
    const auto& table = kxt::HTMLEntityTable;
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        const uint32_t c = uint32_t(in[i]);
        if (i == 0 && (c == 0xFEFF || c == 0xFFFE)) continue;
        if (c == 39 && !plain) {
            out += "&#39;";
            continue;
        }
        size_t k = 0;
        if (plain) {
            while (table[k].code != 0 && table[k].code < 128) ++k;
        }
        while (table[k].code != 0 && table[k].code != c) ++k;
        if (table[k].code != 0) {
            out += '&' + std::string(table[k].name) + ';';
        } else if (c > 127) {
            out += "&#" + std::to_string(int32_t(c)) + ';';
        } else if (c >= 32 || c == 9 || c == 10 || c == 13) {
            out += char(c);
        }
    }
    return out;
}

}  // namespace ref
