// The plugin's index: start-up, the StyledText extension and the table of global methods, in
// the order they are handed to the host. Each row points to the family source that serves it.
#include "MainString.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "Distance.h"
#include "Hexencoding.h"
#include "ISOencoding.h"
#include "MainInstr.h"
#include "MainStringCompose.h"
#include "REALplugin.h"
#include "RTFRead.h"
#include "RTFWrite.h"
#include "RemoveAccents.h"
#include "ReplaceLineEndings.h"
#include "URLencoding.h"
#include "XojoDeclaration.h"
#include "hexstring.h"
#include "htmlencoding.h"
#include "htmltags.h"
#include "numberformat.h"
#include "quotedprintableRB.h"
#include "rbDebug.h"
#include "rbclassutil.h"
#include "rbstring.h"
#include "sqlboolean.h"
#include "stringcalc.h"
#include "stringdetect.h"
#include "xmlencoding.h"

namespace {

// The handler's C types are checked against its declaration while compiling.
#define KXT_METHOD(handler, declaration)                                               \
    {                                                                                  \
        (static_cast<void>(                                                            \
             kxt::abi::RequireMatch(kxt::abi::HandlerMatches(&handler, declaration))), \
         reinterpret_cast<REALproc>(handler)),                                         \
            nullptr, declaration, kREALFlagGlobal, 0, nullptr                          \
    }

REALmethodDefinition gStringMethods[] = {
    KXT_METHOD(ReplaceLineEndingsKXT,
               "ReplaceLineEndingsKXT(Text as String, NewLine as String, yield as boolean = false) "
               "as String"),                                                                  // 0
    KXT_METHOD(HasPrefixKXT, "HasPrefixKXT(Text as String, Prefix as String) as boolean"),    // 1
    KXT_METHOD(HasPostfixKXT, "HasPostfixKXT(Text as String, Prefix as String) as boolean"),  // 2
    KXT_METHOD(ContainsWholeWordKXT,
               "ContainsWholeWordKXT(Text as String, Word as String) as boolean"),  // 3
    KXT_METHOD(GetStringsKXTp,
               "GetStringsFromDataKXT(data as ptr, size as Integer, MinLength as Integer = 0) as "
               "string()"),  // 4
    KXT_METHOD(
        GetStringsKXTm,
        "GetStringsFromDataKXT(data as MemoryBlock, MinLength as Integer = 0) as string()"),  // 5
    KXT_METHOD(GetStringsKXTs,
               "GetStringsFromDataKXT(data as String, MinLength as Integer = 0) as string()"),  // 6
    KXT_METHOD(CheckUTF8p,
               "CheckUTF8KXT(data as ptr, size as Integer, Placeholder as string) as string"),  // 7
    KXT_METHOD(CheckUTF8m,
               "CheckUTF8KXT(mem as MemoryBlock, Placeholder as string) as string"),          // 8
    KXT_METHOD(CheckUTF8s, "CheckUTF8KXT(data as string, Placeholder as string) as string"),  // 9
    KXT_METHOD(EncodeEmailSubjectKXT, "EncodeEmailSubjectKXT(s as string) as string"),        // 10
    KXT_METHOD(yDecodeKXTm, "_yDecodeMemoryKXT(data as memoryblock) as memoryblock"),         // 11
    KXT_METHOD(yDecodeKXTs, "_yDecodeStringKXT(data as string) as string"),                   // 12
    KXT_METHOD(jaroWinklerDistanceKXT,
               "JaroWinklerDistanceKXT(a as string, b as string) as double"),  // 13
    KXT_METHOD(levenshteinDistanceKXT,
               "LevenshteinDistanceKXT(a as string, b as string) as double"),  // 14
    KXT_METHOD(ScientificStrKXT,
               "ScientificStrKXT(d as double, digits as integer) as string"),  // 15
    KXT_METHOD(StrKXT, "StrKXT(d as double) as string"),                       // 16
    KXT_METHOD(RandomBytesStringKXT,
               "RandomBytesStringKXT(Length as integer, ASCII as boolean=false) as string"),  // 17
    KXT_METHOD(CreateStringKXT,
               "CreateStringKXT(Length as integer, Content as String) as string"),             // 18
    KXT_METHOD(StrCompBytesKXT, "StrCompBytesKXT(a as string, b as string) as integer"),       // 19
    KXT_METHOD(StrCompCharsKXT, "StrCompCharactersKXT(a as string, b as string) as integer"),  // 20
    KXT_METHOD(CountOccurancesKXT,
               "CountOccurancesKXT(s as string, find as string) as integer"),             // 21
    KXT_METHOD(ClearStringContentKXT, "ClearStringContentKXT(s as String) as Boolean"),   // 22
    KXT_METHOD(DetectUnicodeMarkers, "DetectUnicodeMarkersKXT(s as string) as integer"),  // 23
    KXT_METHOD(GetUnicodeMarkers, "GetUnicodeMarkersKXT(kind as integer) as string"),     // 24
    KXT_METHOD(StringIsHTMLready, "StringIsHTMLreadyKXT(s as string) as boolean"),        // 25
    KXT_METHOD(StringIsXMLready, "StringIsXMLreadyKXT(s as string) as boolean"),          // 26
    KXT_METHOD(StringAND, "StringANDKXT(a as string,b as string) as string"),             // 27
    KXT_METHOD(StringOR, "StringORKXT(a as string,b as string) as string"),               // 28
    KXT_METHOD(StringXOR,
               "StringXORKXT(data as string, XorMask as string, MaskOffset as integer = 0) as "
               "string"),  // 29
    KXT_METHOD(StringXOR2,
               "StringXOR2KXT(data as string, XorMask as string, MaskOffset as integer = 0) as "
               "string"),                                                          // 30
    KXT_METHOD(RBUnicodeString, "UnicodeStringKXT(s as string) as string"),        // 31
    KXT_METHOD(RBNativeString, "NativeStringKXT(s as string) as string"),          // 32
    KXT_METHOD(DecodingFromMySQL, "DecodingFromMySQLKXT(s as string) as string"),  // 33
    KXT_METHOD(EncodingToHTML,
               "EncodingToHTMLKXT(s as string, options as integer = 0) as string"),  // 34
    KXT_METHOD(DecodingToHTML, "DecodingFromHTMLKXT(s as string) as string"),        // 35
    KXT_METHOD(EncodingToXML,
               "EncodingToXMLKXT(s as string, options as integer = 0) as string"),  // 36
    KXT_METHOD(DecodingToHTML, "DecodingFromXMLKXT(s as string) as string"),        // 37
    KXT_METHOD(EncodingToURL1, "EncodingToURLKXT(s as string) as string"),          // 38
    KXT_METHOD(EncodingToURL2,
               "EncodingToURLKXT(s as string, options as integer) as string"),  // 39
    KXT_METHOD(DecodingToURL1, "DecodingFromURLKXT(s as string) as string"),    // 40
    KXT_METHOD(DecodingToURL2,
               "DecodingFromURLKXT(s as string, options as integer) as string"),  // 41
    KXT_METHOD(
        EncodingToQuotedPrintable2,
        "EncodingToQuotedPrintableKXT(s as string, LineLen as integer = 72) as string"),  // 42
    KXT_METHOD(DecodingToQuotedPrintable,
               "DecodingFromQuotedPrintableKXT(s as string) as string"),  // 43
    KXT_METHOD(Hexstring,
               "HexstringKXT(input as string, hexlen as integer, linelen as integer, linestart as "
               "string, lineend as string, spacer as string,filler as string) as string"),  // 44
    KXT_METHOD(EncodingToISO8859, "EncodingToISO8859KXT(s as string) as string"),           // 45
    KXT_METHOD(DecodingToISO8859, "DecodingFromISO8859KXT(s as string) as string"),         // 46
    KXT_METHOD(EncodingToCP1252, "EncodingToCP1252KXT(s as string) as string"),             // 47
    KXT_METHOD(DecodingToCP1252, "DecodingFromCP1252KXT(s as string) as string"),           // 48
    KXT_METHOD(EncodingToHex, "EncodingToHexKXT(s as string) as string"),                   // 49
    KXT_METHOD(DecodingToHex, "DecodingFromHexKXT(s as string) as string"),                 // 50
    KXT_METHOD(ReplaceNonPrintableCharactersKXT,
               "ReplaceNonPrintableCharactersKXT(s as string, replacevalue as integer=46) as "
               "string"),                                                                     // 51
    KXT_METHOD(IsASCIIString1, "IsASCIIStringKXT(s as string) as boolean"),                   // 52
    KXT_METHOD(IsASCIIString2, "IsASCIIStringKXT(s as string, mode as integer) as boolean"),  // 53
    KXT_METHOD(RemoveHTMLTags, "RemoveHTMLTagsKXT(AsciiTextWithTags as string) as string"),   // 54
    KXT_METHOD(RemoveHTMLTagsWith,
               "RemoveHTMLTagsWithKXT(AsciiTextWithTags as string, Replacement as string) as "
               "string"),  // 55
    KXT_METHOD(ConcatBinaryStringsKXT6,
               "ConcatBinaryStringsKXT(a as string, b as string, c as string, d as string, e as "
               "string, f as string) as string"),  // 56
    KXT_METHOD(ConcatBinaryStringsKXT5,
               "ConcatBinaryStringsKXT(a as string, b as string, c as string, d as string, e as "
               "string) as string"),  // 57
    KXT_METHOD(ConcatBinaryStringsKXT4,
               "ConcatBinaryStringsKXT(a as string, b as string, c as string, d as string) as "
               "string"),  // 58
    KXT_METHOD(ConcatBinaryStringsKXT3,
               "ConcatBinaryStringsKXT(a as string, b as string, c as string) as string"),  // 59
    KXT_METHOD(ConcatBinaryStringsKXT2,
               "ConcatBinaryStringsKXT(a as string, b as string) as string"),                 // 60
    KXT_METHOD(SQLReplaceBooleanKXT, "SQLReplaceBooleanKXT(SQL as string) as string"),        // 61
    KXT_METHOD(InStrBytesKXT, "InStrBytesKXT(target as string, find as string) as integer"),  // 62
    KXT_METHOD(InStrByteRange1KXT,
               "InStrByteRangeKXT(target as string, StartValue as integer, EndValue as integer) as "
               "integer"),  // 63
    KXT_METHOD(InStrByteRange2KXT,
               "InStrByteRangeKXT(target as string, StartValue as integer, EndValue as integer, "
               "StartValue2 as integer, EndValue2 as integer) as integer"),  // 64
    KXT_METHOD(InStrByteRange3KXT,
               "InStrByteRangeKXT(target as string, StartValue as integer, EndValue as integer, "
               "StartValue2 as integer, EndValue2 as integer, StartValue3 as integer, EndValue3 as "
               "integer) as integer"),  // 65
    KXT_METHOD(InStrByteRange1BKXT,
               "InStrByteRangeKXT(target as string, find as string, StartValue as integer, "
               "EndValue as integer) as integer"),  // 66
    KXT_METHOD(
        InStrByteRange2BKXT,
        "InStrByteRangeKXT(target as string, find as string, StartValue as integer, EndValue as "
        "integer, StartValue2 as integer, EndValue2 as integer) as integer"),  // 67
    KXT_METHOD(InStrByteRange3BKXT,
               "InStrByteRangeKXT(target as string, find as string, StartValue as integer, "
               "EndValue as integer, StartValue2 as integer, EndValue2 as integer, StartValue3 as "
               "integer, EndValue3 as integer) as integer"),  // 68
    KXT_METHOD(ConvertUnicodeToCharacterCompositionKXT,
               "ConvertUnicodeToCharacterCompositionKXT(text as string) as string"),  // 69
    KXT_METHOD(ConvertUnicodeToCharacterDecompositionKXT,
               "ConvertUnicodeToCharacterDecompositionKXT(text as string) as string"),  // 70
    KXT_METHOD(RemoveAccentsKXT,
               "RemoveAccentsKXT(text as string, IgnoreCase as boolean = false) as string"),  // 71
};

constexpr const char kRTFDataDeclaration[] =
    "RTFDataKXT(SkipParagraphs as boolean = false) as string";
static_assert(kxt::abi::GetterMatches(&RTFRead, kRTFDataDeclaration));
static_assert(kxt::abi::SetterMatches(&RTFWrite, kRTFDataDeclaration));

REALmethodDefinition gStyledTextMethods[] = {
    {reinterpret_cast<REALproc>(RTFRead), reinterpret_cast<REALproc>(RTFWrite), kRTFDataDeclaration,
     kREALFlagNewStyle, 0, nullptr},
};

REALclassDefinition gStyledTextExtension = [] {
    REALclassDefinition c{};
    c.version = kREALRecordVersion;
    c.name = "StyledText";
    c.methods = gStyledTextMethods;
    c.methodCount = 1;
    c.mFlags = kREALFlagNewStyle;
    return c;
}();

}  // namespace

std::span<const REALmethodDefinition> StringMethodTable() {
    return gStringMethods;
}

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
    const uint32_t seed = product + static_cast<uint32_t>(time(nullptr));
    srand(seed);
    kxt::seedRandomBytes(seed);  // RandomBytesStringKXT's generators start from it
}
