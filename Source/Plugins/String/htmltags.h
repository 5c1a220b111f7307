// Removal of HTML tags from text.
#pragma once

#include <string>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

// Drops every tag (a "<" followed by "/" or an ASCII letter, up to its ">"; double-quoted
// attribute values may hold ">") and every stray ">". Each other byte inside a tag adds
// `replacement` once. A "<" that starts no tag is text.
std::string removeHTMLTags(std::string_view text, std::string_view replacement = {});
// The same one byte at a time: the reference.
std::string removeHTMLTagsPlain(std::string_view text, std::string_view replacement = {});

}  // namespace kxt

// Handlers.
REALstring RemoveHTMLTags(REALstring AsciiTextWithTags);
REALstring RemoveHTMLTagsWith(REALstring AsciiTextWithTags, REALstring Replacement);
