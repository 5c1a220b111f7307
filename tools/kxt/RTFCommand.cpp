// kxt rtf [--roundtrip] [--skip-paragraphs] FILE: assigns a file's RTF to a StyledText through
// RTFDataKXT and prints the runs and paragraphs it got; with --roundtrip also the RTF that
// reading RTFDataKXT gives for them.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "Commands.h"

namespace kxt_tool {
namespace {

// Text on one line: quotes, backslashes and control characters escaped, UTF-8 kept.
std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
            case '\r':
                out += "\\r";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    char hex[8];
                    std::snprintf(hex, sizeof hex, "\\x%02X", c);
                    out += hex;
                } else {
                    out += char(c);
                }
        }
    }
    return out + "\"";
}

const char* AlignmentName(int64_t alignment) {
    switch (alignment) {
        case 0:
            return "default";
        case 1:
            return "left";
        case 2:
            return "centre";
        case 3:
            return "right";
        default:
            return "other";
    }
}

std::string ReadInput(const std::string& path) {
    std::ostringstream bytes;
    if (path == "-") {
        bytes << std::cin.rdbuf();
    } else {
        std::ifstream in(path, std::ios::binary);
        if (!in) throw UsageError("cannot read " + path);
        bytes << in.rdbuf();
    }
    return bytes.str();
}

int runRTF(const GlobalOptions& global, const std::vector<std::string>& args) {
    GlobalOptions options = global;
    bool roundTrip = false, skipParagraphs = false;
    std::vector<std::string> rest;
    for (const std::string& a : args) {
        if (a == "--roundtrip") {
            roundTrip = true;
        } else if (a == "--skip-paragraphs") {
            skipParagraphs = true;
        } else {
            rest.push_back(a);
        }
    }
    std::string path;
    for (size_t i = parseOptions(rest, 0, options); i < rest.size(); ++i) {
        if (!path.empty()) throw UsageError("rtf takes one file, got " + rest[i]);
        path = rest[i];
    }
    if (path.empty()) throw UsageError("rtf needs a file (- for standard input)");
    std::string rtf = ReadInput(path);

    std::unique_ptr<xhost::Host> host = loadHost(options);
    int status = reportRTF(*host, rtf, roundTrip, skipParagraphs, stdout, stderr);
    std::fflush(stdout);
    return status;
}

}  // namespace

int reportRTF(xhost::Host& host, const std::string& rtf, bool roundTrip, bool skipParagraphs,
              FILE* out, FILE* err) {
    xhost::Value text = host.newStyledText({});
    xhost::CallResult set =
        host.setRTF(text, xhost::Value::string(rtf, kREALTextEncodingUnknown), skipParagraphs);
    if (set.exception) {
        std::fprintf(err, "%s: %s\n", set.exception->className.c_str(),
                     set.exception->message.c_str());
        return 1;
    }

    std::vector<xhost::RunSpec> runs = host.styleRuns(text);
    std::fprintf(out, "runs: %zu\n", runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
        const xhost::RunSpec& r = runs[i];
        std::fprintf(out, "  %zu: %s font=%s size=%lld color=#%06X%s%s%s\n", i,
                     Quoted(r.text).c_str(), Quoted(r.font).c_str(), (long long)r.size, r.color,
                     r.bold ? " bold" : "", r.italic ? " italic" : "",
                     r.underline ? " underline" : "");
    }
    std::vector<xhost::ParagraphSpec> paragraphs = host.paragraphs(text);
    std::fprintf(out, "paragraphs: %zu\n", paragraphs.size());
    for (size_t i = 0; i < paragraphs.size(); ++i) {
        const xhost::ParagraphSpec& p = paragraphs[i];
        std::fprintf(out, "  %zu: %lld-%lld alignment=%lld (%s)\n", i, (long long)p.start,
                     (long long)p.end, (long long)p.alignment, AlignmentName(p.alignment));
    }

    if (roundTrip) {
        xhost::CallResult got = host.getRTF(text, skipParagraphs);
        if (got.exception) {
            std::fprintf(err, "%s: %s\n", got.exception->className.c_str(),
                         got.exception->message.c_str());
            return 1;
        }
        std::fprintf(out, "rtf:\n");
        if (got.value.isNil()) {
            std::fprintf(out, "nil\n");
        } else {
            printValue(got.value, GlobalOptions{}, out);
        }
    }
    return 0;
}

KXT_COMMAND(rtf, "rtf", "[--roundtrip] [--skip-paragraphs] FILE",
            "assign FILE (- for stdin) to RTFDataKXT and print the runs and paragraphs; "
            "--roundtrip also prints the RTF read back",
            &runRTF);

}  // namespace kxt_tool
