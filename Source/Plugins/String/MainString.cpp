// The plugin's index: start-up, the StyledText extension and the table of global methods, in
// the order they are handed to the host. Each row points to the family source that serves it.
#include "MainString.h"

#include <ctime>
#include <cstdlib>
#include <unistd.h>

#include "Hexencoding.h"
#include "ISOencoding.h"
#include "MainStringCompose.h"
#include "REALplugin.h"
#include "RemoveAccents.h"
#include "URLencoding.h"
#include "hexstring.h"
#include "htmlencoding.h"
#include "quotedprintableRB.h"
#include "rbDebug.h"
#include "rbclassutil.h"
#include "stringdetect.h"
#include "xmlencoding.h"

namespace {

constexpr uint32_t kGlobal = 4;

#define KXT_METHOD(handler, declaration) \
    { reinterpret_cast<REALproc>(handler), nullptr, declaration, kGlobal, 0, nullptr }

REALmethodDefinition gStringMethods[] = {
    KXT_METHOD(EncodeEmailSubjectKXT, "EncodeEmailSubjectKXT(s as string) as string"),
    KXT_METHOD(yDecodeKXTm, "_yDecodeMemoryKXT(data as memoryblock) as memoryblock"),
    KXT_METHOD(yDecodeKXTs, "_yDecodeStringKXT(data as string) as string"),
    KXT_METHOD(DetectUnicodeMarkers, "DetectUnicodeMarkersKXT(s as string) as integer"),
    KXT_METHOD(GetUnicodeMarkers, "GetUnicodeMarkersKXT(kind as integer) as string"),
    KXT_METHOD(StringIsHTMLready, "StringIsHTMLreadyKXT(s as string) as boolean"),
    KXT_METHOD(StringIsXMLready, "StringIsXMLreadyKXT(s as string) as boolean"),
    KXT_METHOD(DecodingFromMySQL, "DecodingFromMySQLKXT(s as string) as string"),
    KXT_METHOD(EncodingToHTML, "EncodingToHTMLKXT(s as string, options as integer = 0) as string"),
    KXT_METHOD(DecodingToHTML, "DecodingFromHTMLKXT(s as string) as string"),
    KXT_METHOD(EncodingToXML, "EncodingToXMLKXT(s as string, options as integer = 0) as string"),
    KXT_METHOD(DecodingToHTML, "DecodingFromXMLKXT(s as string) as string"),
    KXT_METHOD(EncodingToURL1, "EncodingToURLKXT(s as string) as string"),
    KXT_METHOD(EncodingToURL2, "EncodingToURLKXT(s as string, options as integer) as string"),
    KXT_METHOD(DecodingToURL1, "DecodingFromURLKXT(s as string) as string"),
    KXT_METHOD(DecodingToURL2, "DecodingFromURLKXT(s as string, options as integer) as string"),
    KXT_METHOD(EncodingToQuotedPrintable2,
               "EncodingToQuotedPrintableKXT(s as string, LineLen as integer = 72) as string"),
    KXT_METHOD(DecodingToQuotedPrintable, "DecodingFromQuotedPrintableKXT(s as string) as string"),
    KXT_METHOD(Hexstring,
               "HexstringKXT(input as string, hexlen as integer, linelen as integer, "
               "linestart as string, lineend as string, spacer as string,filler as string) "
               "as string"),
    KXT_METHOD(EncodingToISO8859, "EncodingToISO8859KXT(s as string) as string"),
    KXT_METHOD(DecodingToISO8859, "DecodingFromISO8859KXT(s as string) as string"),
    KXT_METHOD(EncodingToCP1252, "EncodingToCP1252KXT(s as string) as string"),
    KXT_METHOD(DecodingToCP1252, "DecodingFromCP1252KXT(s as string) as string"),
    KXT_METHOD(EncodingToHex, "EncodingToHexKXT(s as string) as string"),
    KXT_METHOD(DecodingToHex, "DecodingFromHexKXT(s as string) as string"),
    KXT_METHOD(ConvertUnicodeToCharacterCompositionKXT,
               "ConvertUnicodeToCharacterCompositionKXT(text as string) as string"),
    KXT_METHOD(ConvertUnicodeToCharacterDecompositionKXT,
               "ConvertUnicodeToCharacterDecompositionKXT(text as string) as string"),
    KXT_METHOD(RemoveAccentsKXT,
               "RemoveAccentsKXT(text as string, IgnoreCase as boolean = false) as string"),
};

REALmethodDefinition gStyledTextMethods[] = {
    {nullptr, nullptr, "RTFDataKXT(SkipParagraphs as boolean = false) as string", 0x308, 0,
     nullptr},
};

REALclassDefinition gStyledTextExtension = [] {
    REALclassDefinition c{};
    c.version = 15;
    c.name = "StyledText";
    c.methods = gStyledTextMethods;
    c.methodCount = 0;  // the RTF property registers once its getter and setter exist
    c.mFlags = 0x308;
    return c;
}();

}  // namespace

std::span<const REALmethodDefinition> StringMethodTable() { return gStringMethods; }

extern "C" __attribute__((visibility("default"))) void PluginEntry() {
    PluginStart("String");
    if (REALinRuntime()) {
        InitRand();
        InitTable();
    }
    MyREALRegisterClassExtension(&gStyledTextExtension);
    MyREALRegisterMethodArray(gStringMethods, sizeof(gStringMethods) / sizeof(gStringMethods[0]));
}

void InitRand() {
    // The product is taken in 32 bits before the addition.
    uint32_t product = static_cast<uint32_t>(getpid()) * 17u;
    srand(product + static_cast<uint32_t>(time(nullptr)));
}
