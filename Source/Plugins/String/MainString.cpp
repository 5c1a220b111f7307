// The plugin's index: start-up, the StyledText extension and the table of global methods, in
// the order they are handed to the host. Each row points to the family source that serves it.
#include "MainString.h"

#include <ctime>
#include <cstdlib>
#include <unistd.h>

#include "REALplugin.h"
#include "RTFRead.h"
#include "RTFWrite.h"
#include "URLencoding.h"
#include "rbDebug.h"
#include "rbclassutil.h"

namespace {

constexpr uint32_t kGlobal = 4;

#define KXT_METHOD(handler, declaration) \
    { reinterpret_cast<REALproc>(handler), nullptr, declaration, kGlobal, 0, nullptr }

REALmethodDefinition gStringMethods[] = {
    KXT_METHOD(EncodingToURL1, "EncodingToURLKXT(s as string) as string"),
    KXT_METHOD(EncodingToURL2, "EncodingToURLKXT(s as string, options as integer) as string"),
    KXT_METHOD(DecodingToURL1, "DecodingFromURLKXT(s as string) as string"),
    KXT_METHOD(DecodingToURL2, "DecodingFromURLKXT(s as string, options as integer) as string"),
};

REALmethodDefinition gStyledTextMethods[] = {
    {reinterpret_cast<REALproc>(RTFRead), reinterpret_cast<REALproc>(RTFWrite),
     "RTFDataKXT(SkipParagraphs as boolean = false) as string", 0x308, 0, nullptr},
};

REALclassDefinition gStyledTextExtension = [] {
    REALclassDefinition c{};
    c.version = 15;
    c.name = "StyledText";
    c.methods = gStyledTextMethods;
    c.methodCount = 1;
    c.mFlags = 0x308;
    return c;
}();

}  // namespace

std::span<const REALmethodDefinition> StringMethodTable() { return gStringMethods; }

extern "C" __attribute__((visibility("default"))) void PluginEntry() {
    PluginStart("String");
    if (REALinRuntime()) {
        InitRand();
    }
    MyREALRegisterClassExtension(&gStyledTextExtension);
    MyREALRegisterMethodArray(gStringMethods, sizeof(gStringMethods) / sizeof(gStringMethods[0]));
}

void InitRand() {
    // The product is taken in 32 bits before the addition.
    uint32_t product = static_cast<uint32_t>(getpid()) * 17u;
    srand(product + static_cast<uint32_t>(time(nullptr)));
}
