// Strings as byte arrays: AND, OR and XOR with a repeating mask, concatenation without encoding
// conversion, strings made by repeating a pattern, random bytes, wiping a string in place.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

// Each writes data.size() bytes to out: out[i] = data[i] op mask[(offset + i) mod mask.size()].
// The mask must not be empty. AND and OR start at the mask's first byte; the XOR forms take any
// offset and reduce it modulo the mask length (valid offsets are unchanged). StringXOR2 also
// XORs each byte with the low 8 bits of its index. Each returns true when every byte written
// is below 0x80.
bool maskAND(std::string_view data, std::string_view mask, uint8_t* out);
bool maskOR(std::string_view data, std::string_view mask, uint8_t* out);
bool maskXOR(std::string_view data, std::string_view mask, int64_t offset, uint8_t* out);
bool maskXORIndexed(std::string_view data, std::string_view mask, int64_t offset, uint8_t* out);

// The operands' bytes one after the other.
std::string concatBytes(std::initializer_list<std::string_view> parts);

// Fills out with content repeated from its start (the last copy cut short). An empty content or
// a single zero byte leaves out as it is.
void fillRepeating(std::span<uint8_t> out, std::string_view content);

// The C library's rand() generator, one per thread: bytes 32..127 when ascii (DEL included),
// else its low 8 bits. A thread's generator starts from the process seed mixed with the thread's
// identity, so threads neither share a lock nor repeat each other's bytes.
void fillRandomBytes(std::span<uint8_t> out, bool ascii);
// The process seed (InitRand's; 1 until then, as for an unseeded rand()). Every thread starts
// its generator again from the new seed at its next use.
void seedRandomBytes(uint32_t seed);
// What the calling thread's generator was started from: srand() of it gives rand() the same
// sequence.
uint32_t threadRandomSeed();

}  // namespace kxt

REALstring StringAND(REALstring a, REALstring b);
REALstring StringOR(REALstring a, REALstring b);
REALstring StringXOR(REALstring data, REALstring xorMask, RBInteger maskOffset);
REALstring StringXOR2(REALstring data, REALstring xorMask, RBInteger maskOffset);
REALstring ConcatBinaryStringsKXT2(REALstring a, REALstring b);
REALstring ConcatBinaryStringsKXT3(REALstring a, REALstring b, REALstring c);
REALstring ConcatBinaryStringsKXT4(REALstring a, REALstring b, REALstring c, REALstring d);
REALstring ConcatBinaryStringsKXT5(REALstring a, REALstring b, REALstring c, REALstring d,
                                   REALstring e);
REALstring ConcatBinaryStringsKXT6(REALstring a, REALstring b, REALstring c, REALstring d,
                                   REALstring e, REALstring f);
REALstring CreateStringKXT(RBInteger length, REALstring content);
REALstring RandomBytesStringKXT(RBInteger length, RBBoolean ascii);
RBBoolean ClearStringContentKXT(REALstring s);
