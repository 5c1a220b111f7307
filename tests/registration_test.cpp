// Registration: declarations of extension methods, flag adjustment by host age, and what each
// kind of host ends up with.
#include <dlfcn.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "KxtTest.h"
#include "MainString.h"
#include "MyMemory.h"
#include "REALplugin.h"
#include "XojoDeclaration.h"
#include "rbclassutil.h"

using namespace kxt_test;

namespace {

std::string owned(char* p) {
    std::unique_ptr<char, decltype(&free)> guard(p, free);
    return p ? std::string(p) : std::string("<null>");
}

TEST(ExtensionDeclarations, GainAnExtendsParameterAndAnAssignsValue) {
    struct Case {
        const char* declaration;
        const char* withClass;
        const char* withAssign;
    };
    const Case cases[] = {
        {"Foo", "Foo(extends ref as C)", "Foo(extends ref as C, assigns value)"},
        {"Foo as Integer", "Foo(extends ref as C) as Integer",
         "Foo(extends ref as C, assigns value as Integer)"},
        {"Foo()", "Foo(extends ref as C, )", "Foo(extends ref as C, , assigns value)"},
        {"RTFDataKXT(SkipParagraphs as boolean = false) as string",
         "RTFDataKXT(extends ref as C, SkipParagraphs as boolean = false) as string",
         "RTFDataKXT(extends ref as C, SkipParagraphs as boolean = false, assigns value as "
         "string)"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(owned(AddClassParameter(c.declaration, "C")), c.withClass);
        EXPECT_EQ(owned(AddClassParameterAssign(c.declaration, "C")), c.withAssign);
    }
}

// KXT_METHOD does not compile a handler whose C types disagree with its declaration. The check
// itself, on deliberately wrong signatures (a null pointer of the type is all it reads):
template <typename Fn>
constexpr bool Handles(const char* declaration) {
    return kxt::abi::HandlerMatches(Fn(nullptr), declaration);
}
constexpr const char kCount[] = "F(s as String, n as Integer = 0) as integer";
static_assert(Handles<RBInteger (*)(REALstring, RBInteger)>(kCount));
static_assert(!Handles<RBInteger (*)(REALstring, int32_t)>(kCount));  // Integer is 64-bit
static_assert(!Handles<int32_t (*)(REALstring, RBInteger)>(kCount));
static_assert(!Handles<RBInteger (*)(REALstring)>(kCount));  // a default still takes a slot
static_assert(!Handles<RBInteger (*)(REALobject, RBInteger)>(kCount));
static_assert(Handles<RBBoolean (*)(double, void*, REALmemoryBlock)>(
    "G(d as double, p as Ptr, m as MemoryBlock) as Boolean"));
static_assert(!Handles<bool (*)(double, void*, REALmemoryBlock)>(  // RBBoolean is one byte
    "G(d as double, p as Ptr, m as MemoryBlock) as Boolean"));
static_assert(Handles<REALarray (*)(REALobject)>("H(t as StyledText) as String()"));
static_assert(!Handles<REALstring (*)(REALobject)>("H(t as StyledText) as String()"));
static_assert(Handles<void (*)()>("Nothing()") && !Handles<void (*)()>("Broken"));
constexpr const char kProperty[] = "P(flag as boolean = false) as string";
static_assert(kxt::abi::GetterMatches((REALstring(*)(REALobject, RBBoolean)) nullptr, kProperty));
static_assert(!kxt::abi::GetterMatches((REALstring(*)(RBBoolean)) nullptr, kProperty));
static_assert(kxt::abi::SetterMatches((void (*)(REALobject, RBBoolean, REALstring)) nullptr,
                                      kProperty));
static_assert(!kxt::abi::SetterMatches((void (*)(REALobject, REALstring, RBBoolean)) nullptr,
                                       kProperty));

// The compile-time reading agrees with the host's parser on every registered declaration.
TEST(HandlerDeclarations, TheCompileTimeReadingAgreesWithTheHostsParser) {
    for (const REALmethodDefinition& m : StringMethodTable()) {
        const xhost::Declaration host = xhost::parseDeclaration(m.declaration);
        const kxt::abi::DeclaredTypes read = kxt::abi::ReadDeclaration(m.declaration);
        ASSERT_TRUE(read.valid) << m.declaration;
        ASSERT_EQ(read.count, host.params.size()) << m.declaration;
        for (size_t i = 0; i < read.count; ++i) {
            EXPECT_EQ(read.parameters[i], host.params[i].kind) << m.declaration;
        }
        EXPECT_EQ(read.result, host.resultKind) << m.declaration;
    }
}

TEST(ExtensionDeclarations, OverlongDeclarationsAreCutNotOverrun) {
    std::string longName(3000, 'x');
    std::string result = owned(AddClassParameter(longName.c_str(), "C"));
    EXPECT_EQ(result.size(), 999u);
    EXPECT_EQ(result.substr(0, 10), std::string(10, 'x'));
}

struct FlagCase {
    double hostVersion;
    uint32_t in, out;
};

TEST(FixFlags, AdaptsNewStyleFlagsAndThePluginMarkerToTheHost) {
    const FlagCase cases[] = {
        {2019.0, 0x308, 0x4},   {2020.02, 0x308, 0x308}, {2020.01, 0x318, 0x14},
        {2019.0, 0x708, 0x708}, {2019.0, 0x4, 0x4},      {2010.029, 0x40000, 0x4},
        {2010.0, 0x40000, 0x0}, {2019.0, 0x40010, 0x14}, {3000.0, 0x308, 0x308},
    };
    const double saved = gHostVersion;
    for (const auto& c : cases) {
        gHostVersion = c.hostVersion;
        EXPECT_EQ(FixFlags(c.in), c.out) << std::hex << c.in << " on " << c.hostVersion;
    }
    gHostVersion = saved;
}

TEST(MarkProtected, MarksOnlyRecordsWithoutScope) {
    REALmethodDefinition methods[3] = {};
    methods[0].mFlags = 0x4;
    methods[1].mFlags = 0x14;
    methods[2].mFlags = 0x80;
    MarkProtected(methods, 3);
    EXPECT_EQ(methods[0].mFlags, 0x44u);
    EXPECT_EQ(methods[1].mFlags, 0x14u);
    EXPECT_EQ(methods[2].mFlags, 0x80u);
    MarkProtected(static_cast<REALmethodDefinition*>(nullptr), 2);  // logs, touches nothing
}

}  // namespace

namespace {

class Registration : public HostTest {
  protected:
    static std::string moduleNames(const xhost::Host& h) {
        std::string names;
        for (const auto& m : h.modules()) names += m.name + ";";
        return names;
    }
};

template <int Version100>
class RegistrationOnHost : public Registration {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.version = Version100 / 100.0;
        return o;
    }
};

using Registration2019 = RegistrationOnHost<201900>;
using Registration2012 = RegistrationOnHost<201200>;
using Registration2020 = RegistrationOnHost<202002>;
using Registration3000 = RegistrationOnHost<300000>;

TEST_F(Registration2019, GlobalsAndExtensionBecomeModulesWithHiddenDebugging) {
    // The class extension registers first, then the method array.
    ASSERT_EQ(host().modules().size(), 2u) << moduleNames(host());
    EXPECT_TRUE(host().globalMethods().empty());
    EXPECT_TRUE(host().classExtensions().empty());
    const auto& extension = host().modules()[0];
    const auto& globals = host().modules()[1];
    EXPECT_EQ(extension.name, "StyledTextStringExtensionKXT");
    EXPECT_EQ(globals.name, "StringGlobalsKXT");
    EXPECT_EQ(globals.methods.size(), StringMethodTable().size());
    for (size_t i = 0; i < globals.methods.size(); ++i) {
        EXPECT_EQ(globals.methods[i].declarationText, StringMethodTable()[i].declaration);
        EXPECT_EQ(globals.methods[i].flags, 0x14u) << globals.methods[i].declarationText;
    }
    for (const auto* m : {&extension, &globals}) {
        EXPECT_EQ(m->version, 13u);
        EXPECT_EQ(m->flags, 4u);
        ASSERT_EQ(m->properties.size(), 1u);
        const auto& debugging = m->properties[0];
        EXPECT_EQ(debugging.name, "Debugging");
        EXPECT_EQ(debugging.type, "Boolean");
        EXPECT_EQ(debugging.flags, 0x26u);
        ASSERT_EQ(debugging.attributes.size(), 1u);
        EXPECT_EQ(debugging.attributes[0].first, "Hidden");
        EXPECT_EQ(debugging.attributes[0].second, "");
    }
    EXPECT_EQ(host().announcedInterfaceVersion(), 13u);
}

TEST_F(Registration2019, ExtensionModuleHoldsSetterThenGetter) {
    const auto& extension = host().modules()[0];
    ASSERT_EQ(extension.methods.size(), 2u);
    EXPECT_EQ(extension.methods[0].declarationText,
              "RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false, assigns "
              "value as string)");
    EXPECT_EQ(extension.methods[1].declarationText,
              "RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false) as string");
    for (const auto& m : extension.methods) EXPECT_EQ(m.flags, 0x14u);
}

TEST_F(Registration2020, NewHostsKeepTheNewStyleFlags) {
    const auto& extension = host().modules()[0];
    ASSERT_EQ(extension.name, "StyledTextStringExtensionKXT");
    for (const auto& m : extension.methods) EXPECT_EQ(m.flags, 0x318u);
}

TEST_F(Registration2012, OldHostsGetMethodsOneByOneAndARealExtension) {
    EXPECT_TRUE(host().modules().empty()) << moduleNames(host());
    ASSERT_EQ(host().globalMethods().size(), StringMethodTable().size());
    for (const auto& m : host().globalMethods()) EXPECT_EQ(m.flags, 4u);
    EXPECT_EQ(host().announcedInterfaceVersion(), 10u);
    EXPECT_FALSE(host().setDebugging(true));  // not registered on this path
    ASSERT_EQ(host().classExtensions().size(), 1u);
    const auto& ext = host().classExtensions()[0];
    EXPECT_EQ(ext.className, "StyledText");
    EXPECT_EQ(ext.version, 10u);
    EXPECT_EQ(ext.flags, 4u);
    ASSERT_EQ(ext.methods.size(), 1u);
    EXPECT_EQ(ext.methods[0].flags, 4u);
}

TEST_F(Registration3000, VeryHighVersionsTakeTheOldPath) {
    EXPECT_TRUE(host().modules().empty());
    EXPECT_EQ(host().globalMethods().size(), StringMethodTable().size());
    EXPECT_EQ(host().announcedInterfaceVersion(), 13u);
}

struct VersionCase {
    double host;
    uint32_t interface;
};

TEST(InterfaceVersion, FollowsTheHostVersionThresholds) {
    const VersionCase cases[] = {{2013.03, 12}, {2013.04, 13}, {2011.9, 9}, {2013.0, 11},
                                 {2012.0, 10},  {2012.5, 10},  {0.0, 9},    {2024.0, 13}};
    for (const auto& c : cases) {
        xhost::HostOptions o;
        o.version = c.host;
        xhost::Host h(o);
        EXPECT_EQ(h.announcedInterfaceVersion(), c.interface) << c.host;
    }
}

TEST(InterfaceVersion, MissingVersionQueryMeansOldestHost) {
    xhost::HostOptions o;
    o.hidden = {"REALGetRBVersion"};
    xhost::Host h(o);
    EXPECT_EQ(h.announcedInterfaceVersion(), 9u);
    EXPECT_TRUE(h.modules().empty());
    EXPECT_EQ(h.globalMethods().size(), StringMethodTable().size());
}

class DebuggingSwitch : public HostTest {};

TEST_F(DebuggingSwitch, PropertyStoresTheSwitch) {
    EXPECT_EQ(host().debugging(), std::optional<bool>(false));
    EXPECT_TRUE(host().setDebugging(true));
    EXPECT_EQ(host().debugging(), std::optional<bool>(true));
    EXPECT_TRUE(host().setDebugging(false));
    EXPECT_EQ(host().debugging(), std::optional<bool>(false));
}

}  // namespace

namespace {

class IDEHost : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.inRuntime = false;
        return o;
    }
};

TEST_F(IDEHost, RegistersBothModulesAsInARuntime) {
    ASSERT_EQ(host().modules().size(), 2u);
    EXPECT_EQ(host().modules()[1].methods.size(), StringMethodTable().size());
}

class HostWithoutGuard : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.hidden = {"PluginCallFunctionWithExceptionHandler"};
        return o;
    }
};

TEST_F(HostWithoutGuard, MemoryBlocksAreStillMadeByCallingTheConstructorDirectly) {
    Value r = call("_yDecodeMemoryKXT", {MB("\x6B\x6C")});  // yEnc: each byte minus 42
    EXPECT_EQ(r.bytes(), "AB");
}

class FailingMemoryBlocks : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.failMemoryBlocks = true;
        return o;
    }
};

TEST_F(FailingMemoryBlocks, RaiseOutOfMemoryWithTheSize) {
    Value in = MB("\x6B\x6C\x6D");
    CallResult r = host().call("_yDecodeMemoryKXT", {in});
    ASSERT_TRUE(r.exception);
    EXPECT_EQ(r.exception->className, "OutOfMemoryException");
    EXPECT_EQ(r.exception->message, "Failed to allocate a memoryblock with 3 bytes in size.");
    EXPECT_TRUE(r.value.isNil());
}

class HostWithoutServices : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.hidden = {"REALBuildStringWithEncoding", "StringGetCString"};
        return o;
    }
};

TEST_F(HostWithoutServices, MissingServicesAreQuietNoOps) {
    // No bytes can be read and no string built: every call returns nil, nothing crashes.
    EXPECT_TRUE(call("EncodingToURLKXT", {S("a b")}).isNil());
    EXPECT_TRUE(call("RemoveAccentsKXT", {S("\xC3\xA9")}).isNil());
}

TEST(PluginFile, StartedAsAProgramPrintsTheBanner) {
#ifdef KXT_SANITIZED
    GTEST_SKIP() << "the sanitizer runtime is not there when the plugin runs on its own";
#endif
    FILE* p = popen(programCommand(KXT_PLUGIN_PATH).c_str(), "r");
    ASSERT_NE(p, nullptr);
    char buffer[128] = {0};
    size_t n = fread(buffer, 1, sizeof buffer, p);
    int status = pclose(p);
    EXPECT_EQ(std::string(buffer, n), "KXT Plugin, version 24.5, built Nov 11 2024\n");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(PluginFile, NullResolverRegistersNothingAndReturns) {
    // A fresh copy, so the plugin's state is its own.
    std::string copy = testing::TempDir() + "kxt-null-resolver.so";
    std::string command = std::string("cp ") + KXT_PLUGIN_PATH + " " + copy;
    ASSERT_EQ(system(command.c_str()), 0);
    void* library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto pluginMain = reinterpret_cast<void (*)(REALResolver)>(dlsym(library, "REALPluginMain"));
    ASSERT_NE(pluginMain, nullptr);
    pluginMain(nullptr);
    EXPECT_NE(dlsym(library, "PluginEntry"), nullptr);
    EXPECT_NE(dlsym(library, "libEntry"), nullptr);
    EXPECT_EQ(dlsym(library, "StringMethodTable"), nullptr);  // nothing else is exported
    dlclose(library);
    remove(copy.c_str());
}

}  // namespace
