// Realistic benchmark inputs, generated from fixed seeds so every run measures the same bytes.
// Each text is exactly the requested size and valid UTF-8 where it is text. Inputs are cached
// and shared: a caller keeps what it uses alive by holding the pointer, and the cache lets go
// of older entries once it holds more than a few hundred MiB, so a whole program stays small.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

enum class Corpus {
    Prose,         // English paragraphs, ASCII, CR LF, LF and CR line ends mixed
    Multilingual,  // accented Latin, Greek, Cyrillic, CJK and emoji in UTF-8
    Western,       // French, German, Spanish... prose using only ISO-8859-1 characters
    Western1252,   // the same with the Windows-1252 extras (euro sign, curly quotes, dashes)
    HTML,          // pages: markup, attributes, entities, multilingual text
    RTF,           // word-processor documents: font and colour tables, groups, escapes
    Binary,        // uniformly random bytes
    SQL,           // statements with boolean literals, quoted strings and comments
};

const char* corpusName(Corpus c);

using Bytes = std::shared_ptr<const std::string>;
using Units = std::shared_ptr<const std::u16string>;
using Points = std::shared_ptr<const std::vector<uint32_t>>;

// The text of that kind, exactly `size` bytes.
Bytes corpus(Corpus c, size_t size);

// Derived inputs of exactly `size` bytes, cut at a boundary of their format.
Bytes urlEncoded(Corpus c, size_t size);       // percent-encoding of the corpus
Bytes hexEncoded(size_t size);                 // hexadecimal text of random bytes
Bytes yEncoded(size_t size);                   // yEnc data of random bytes, no line breaks
Bytes quotedPrintable(Corpus c, size_t size);  // quoted-printable of the corpus
Bytes mysqlEscaped(size_t size);               // prose with MySQL backslash escapes
Bytes plainLine(Corpus c, size_t size);        // the corpus with controls and <>&"' as blanks
Bytes latin1Bytes(size_t size);                // Western in ISO-8859-1
Bytes cp1252Bytes(size_t size);                // Western1252 in Windows-1252

// Other forms of the corpus of `size` bytes (their own sizes follow from the text).
Units utf16(Corpus c, size_t size);
Units decomposedUTF16(Corpus c, size_t size);  // canonical decomposition, by the plugin
Bytes decomposedUTF8(Corpus c, size_t size);
Points utf32(Corpus c, size_t size);

// Conversions of valid text (the inputs are made valid, so there are no checks).
std::u16string toUTF16(std::string_view utf8);
std::string toUTF8(std::u16string_view utf16);
std::vector<uint32_t> toUTF32(std::string_view utf8);

// Text of `count` code points drawn from the multilingual corpus, and a copy with about one
// edit in ten (swaps, insertions, deletions, changes): operands for the distances.
std::pair<std::vector<uint32_t>, std::vector<uint32_t>> distanceOperands(size_t count);

}  // namespace bench
