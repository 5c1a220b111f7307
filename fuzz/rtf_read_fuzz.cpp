// The RTF reader on arbitrary bytes: it must finish without a fault, and what it hands on must
// be well formed. Whatever it read is then written and read again.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ByteView.h"
#include "RTFRead.h"
#include "RTFWrite.h"

using namespace kxt::rtf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string rtf(reinterpret_cast<const char*>(data), size);
    RunCollector reader;
    ParseRTF(rtf, reader);

    // Every run is one character as UTF-16 (one unit that is no surrogate, or a surrogate pair)
    // or bytes without a zero byte.
    std::vector<std::vector<uint16_t>> texts;
    for (const ParsedRun& r : reader.runs) {
        // Bytes taken as Latin-1 units, so the writer sees every value.
        std::vector<uint16_t> units;
        if (r.encoding == kREALTextEncodingUTF16) {
            units.resize(r.bytes.size() / 2);
            std::memcpy(units.data(), r.bytes.data(), units.size() * 2);
            const bool single = units.size() == 1 && (units[0] < 0xD800 || units[0] > 0xDFFF);
            const bool pair = units.size() == 2 && units[0] >= 0xD800 && units[0] <= 0xDBFF &&
                              units[1] >= 0xDC00 && units[1] <= 0xDFFF;
            if (r.bytes.size() % 2 != 0 || !(single || pair)) abort();
        } else if (r.bytes.find('\0') != std::string::npos) {
            abort();
        } else {
            for (const uint8_t c : kxt::unsignedBytes(r.bytes)) units.push_back(c);
        }
        texts.push_back(std::move(units));
    }

    std::vector<GeneratorRun> runs;
    for (size_t i = 0; i < reader.runs.size(); ++i) {
        const RunStyle& s = reader.runs[i].style;
        GeneratorRun g;
        g.text = texts[i];
        g.font = s.font;
        g.color = s.color;
        g.size = s.size;
        g.bold = s.bold;
        g.italic = s.italic;
        g.underline = s.underline;
        g.alignment = reader.runs[i].alignment;
        runs.push_back(g);
    }
    std::string written = GenerateRTF(runs);
    RunCollector again;
    ParseRTF(written, again);
    return 0;
}
