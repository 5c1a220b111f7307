// The RTF reader on arbitrary bytes: it must finish without a fault, and what it hands on must
// be well formed. Whatever it read is then written and read again.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "RTFRead.h"
#include "RTFWrite.h"

using namespace kxt::rtf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string rtf(reinterpret_cast<const char*>(data), size);
    RunCollector reader;
    ParseRTF(rtf, reader);

    // Every run is one UTF-16 unit or bytes without a zero byte.
    std::vector<std::vector<uint16_t>> texts;
    for (const ParsedRun& r : reader.runs) {
        if (r.encoding == kREALTextEncodingUTF16) {
            if (r.bytes.size() != 2) abort();
        } else if (r.bytes.find('\0') != std::string::npos) {
            abort();
        }
        // Bytes taken as Latin-1 units, so the writer sees every value.
        std::vector<uint16_t> units;
        if (r.encoding == kREALTextEncodingUTF16) {
            uint16_t u;
            std::memcpy(&u, r.bytes.data(), 2);
            units.push_back(u);
        } else {
            for (unsigned char c : r.bytes) units.push_back(c);
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
