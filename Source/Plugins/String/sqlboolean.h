// Rewriting of the SQL literals TRUE and FALSE into 1 and 0.
#pragma once

#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

// Replaces TRUE and FALSE (any letter case) that form a whole token outside single- and
// double-quoted strings. Tokens are split at bytes below 33, bytes of 128 and more, and ( ) , ;.
// A word is only recognised with a separator after it and at least one more byte after that.
RawBytes sqlReplaceBoolean(std::string_view sql);
// The same one byte at a time: the reference.
std::string sqlReplaceBooleanPlain(std::string_view sql);

}  // namespace kxt

// Handler.
REALstring SQLReplaceBooleanKXT(REALstring SQL);
