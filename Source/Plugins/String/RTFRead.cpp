// The RTF writer behind the getter of StyledText.RTFDataKXT.
#include "RTFRead.h"

#include <charconv>
#include <memory>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "REALplugin.h"
#include "rbStyleRun.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt::rtf {

namespace {

void AppendNumber(std::string& out, int64_t value) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

// Half-points as a 32-bit number; sizes beyond that range are clamped.
int64_t HalfPoints(double size) {
    double half = size * 2 + 0.5;
    if (!(half > INT32_MIN)) return INT32_MIN;  // also NaN
    if (half >= INT32_MAX) return INT32_MAX;
    return static_cast<int32_t>(half);
}

void AppendText(std::string& out, std::span<const uint16_t> text) {
    uint16_t prev = 0;
    for (uint16_t unit : text) {
        if (unit <= 8) {
            // control characters vanish
        } else if (unit == '\n') {
            if (prev != '\r') out += "\\par ";
        } else if (unit == '\r') {
            if (prev != '\n') out += "\\par ";
        } else if (unit == '\\' || unit == '{' || unit == '}') {
            out += '\\';
            out += char(unit);
        } else if (unit <= 127) {
            out += char(unit);
        } else {
            // One escape per UTF-16 unit, so a surrogate pair becomes two escapes.
            out += "\\u";
            AppendNumber(out, unit);
            out += ' ';
        }
        prev = unit;
    }
}

}  // namespace

std::string GenerateRTF(std::span<const GeneratorRun> runs, const SameFont& sameFont) {
    std::unordered_map<uint32_t, int64_t> colorNumbers;
    std::vector<uint32_t> colors;
    std::unordered_map<std::string_view, int64_t> fontNumbers;
    std::vector<std::string_view> fonts;
    for (const GeneratorRun& run : runs) {
        if (colorNumbers.try_emplace(run.color, int64_t(colors.size())).second) {
            colors.push_back(run.color);
        }
        if (fontNumbers.try_emplace(run.font, int64_t(fonts.size())).second) {
            fonts.push_back(run.font);
        }
    }

    std::string out;
    out.reserve(0x100000);
    out += "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl";
    for (size_t i = 0; i < fonts.size(); ++i) {
        out += "{\\f";
        AppendNumber(out, int64_t(i));
        out += "\\fnil ";
        out += fonts[i];  // as it is: names are not escaped
        out += ";}";
    }
    out += "}{\\colortbl";
    // No leading empty entry: number 0 is the first colour used, as "\cf" counts.
    for (uint32_t c : colors) {
        out += "\\red";
        AppendNumber(out, (c >> 16) & 255);
        out += "\\green";
        AppendNumber(out, (c >> 8) & 255);
        out += "\\blue";
        AppendNumber(out, c & 255);
        out += ';';
    }
    out += "}\\uc0 ";

    int64_t alignment = 0;
    bool bold = false, italic = false, underline = false;
    const GeneratorRun* font = nullptr;
    size_t fontIndex = 0;
    uint32_t color = 0;
    double size = 0.0;
    for (size_t i = 0; i < runs.size(); ++i) {
        const GeneratorRun& run = runs[i];
        bool changed = false;
        if (run.alignment != alignment) {
            out += run.alignment == 2 ? "\\qc" : run.alignment == 3 ? "\\qr" : "\\ql";
            alignment = run.alignment;
            changed = true;
        }
        if (run.bold != bold) {
            out += run.bold ? "\\b" : "\\b0";
            bold = run.bold;
            changed = true;
        }
        if (run.italic != italic) {
            out += run.italic ? "\\i" : "\\i0";
            italic = run.italic;
            changed = true;
        }
        if (run.underline != underline) {
            out += run.underline ? "\\ul" : "\\ul0";
            underline = run.underline;
            changed = true;
        }
        if (!run.fontIsNil) {
            bool same =
                font != nullptr && (sameFont ? sameFont(fontIndex, i) : font->font == run.font);
            if (!same) {
                out += "\\f";
                AppendNumber(out, fontNumbers[run.font]);
                font = &run;
                fontIndex = i;
                changed = true;
            }
        }
        if (run.color != color) {
            out += "\\cf";
            AppendNumber(out, colorNumbers[run.color]);
            color = run.color;
            changed = true;
        }
        if (double(run.size) != size) {
            size = double(run.size);
            out += "\\fs";
            AppendNumber(out, HalfPoints(size));
            changed = true;
        }
        if (changed) out += ' ';
        AppendText(out, run.text);
    }
    out += '}';
    return out;
}

}  // namespace kxt::rtf

namespace {

// The name as UTF-8 bytes; a text object that yields nothing ends the call.
std::string GetStringInUTF8(REALstring s) {
    rbText text(s);
    const char* utf8 = text.GetUTF8();
    if (utf8 == nullptr) throw std::logic_error("GetStringInUTF8");
    return std::string(utf8, size_t(text.LengthUTF8()));
}

REALstring GenerateFromHost(REALobject styledText, bool skipParagraphs) {
    std::vector<XojoStyleRun> runs;
    GetXojoStyleRunsForText(styledText, runs, skipParagraphs);
    if (runs.empty()) return nullptr;

    std::vector<std::string> fontNames;
    std::vector<std::unique_ptr<rbText>> texts;
    fontNames.reserve(runs.size());
    texts.reserve(runs.size());
    std::vector<kxt::rtf::GeneratorRun> records(runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
        const XojoStyleRun& run = runs[i];
        fontNames.push_back(GetStringInUTF8(run.font));
        texts.push_back(std::make_unique<rbText>(run.text));
        kxt::rtf::GeneratorRun& r = records[i];
        r.text = texts.back()->utf16();
        r.font = fontNames.back();
        r.fontIsNil = run.font == nullptr;
        r.color = run.textColor;
        r.size = run.size;
        r.bold = run.bold;
        r.italic = run.italic;
        r.underline = run.underline;
        r.alignment = run.alignment;
    }
    // Fonts are compared as the host compares strings.
    auto sameFont = [&](size_t a, size_t b) {
        return REALCompareStrings(runs[a].font, runs[b].font) == 0;
    };
    std::string rtf = kxt::rtf::GenerateRTF(records, sameFont);
    return CString2RB(rtf.c_str(), kREALTextEncodingUTF8);
}

}  // namespace

REALstring RTFRead(REALobject styledText, RBBoolean skipParagraphs) {
    // Nothing is raised or logged: any failure gives nil.
    try {
        return GenerateFromHost(styledText, skipParagraphs != 0);
    } catch (...) {
        return nullptr;
    }
}
