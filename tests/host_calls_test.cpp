// The emulated host's loading, registration, declarations, overload choice, calling
// conventions, exceptions, arrays and knobs, against the fixture plugin.
#include <cstring>
#include <stdexcept>

#include "HostFixture.h"

using namespace kxt_test;
using xhost::Declaration;
using xhost::parseDeclaration;

namespace {

// ---- Declarations -----------------------------------------------------------------------------

struct ParamSpec {
    std::string name{}, type{};
    std::optional<std::string> defaultValue{};
    bool extends = false, assigns = false;
};

struct DeclarationCase {
    std::string text;
    std::string name;
    std::vector<ParamSpec> params;
    std::string result;
};

TEST(Declarations, RealDeclarationsParse) {
    const DeclarationCase cases[] = {
        {"EncodingToURLKXT(s as string) as string",
         "EncodingToURLKXT",
         {{"s", "String"}},
         "String"},
        {"HexstringKXT(input as string, hexlen as integer, linelen as integer, linestart as "
         "string, lineend as string, spacer as string,filler as string) as string",
         "HexstringKXT",
         {{"input", "String"},
          {"hexlen", "Integer"},
          {"linelen", "Integer"},
          {"linestart", "String"},
          {"lineend", "String"},
          {"spacer", "String"},
          {"filler", "String"}},
         "String"},
        {"RandomBytesStringKXT(Length as integer, ASCII as boolean=false) as string",
         "RandomBytesStringKXT",
         {{"Length", "Integer"}, {"ASCII", "Boolean", "false"}},
         "String"},
        {"GetStringsFromDataKXT(data as ptr, size as Integer, MinLength as Integer = 0) as "
         "string()",
         "GetStringsFromDataKXT",
         {{"data", "Ptr"}, {"size", "Integer"}, {"MinLength", "Integer", "0"}},
         "String()"},
        {"_yDecodeMemoryKXT(data as memoryblock) as memoryblock",
         "_yDecodeMemoryKXT",
         {{"data", "MemoryBlock"}},
         "MemoryBlock"},
        {"JaroWinklerDistanceKXT(a as string, b as string) as double",
         "JaroWinklerDistanceKXT",
         {{"a", "String"}, {"b", "String"}},
         "Double"},
        {"ClearStringContentKXT(s as String) as Boolean",
         "ClearStringContentKXT",
         {{"s", "String"}},
         "Boolean"},
        {"RTFDataKXT(SkipParagraphs as boolean = false) as string",
         "RTFDataKXT",
         {{"SkipParagraphs", "Boolean", "false"}},
         "String"},
        {"RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false) as string",
         "RTFDataKXT",
         {{"ref", "StyledText", std::nullopt, true}, {"SkipParagraphs", "Boolean", "false"}},
         "String"},
        {"RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false, assigns value "
         "as string)",
         "RTFDataKXT",
         {{"ref", "StyledText", std::nullopt, true},
          {"SkipParagraphs", "Boolean", "false"},
          {"value", "String", std::nullopt, false, true}},
         ""},
        {"YieldFixture(n as integer)", "YieldFixture", {{"n", "Integer"}}, ""},
        {"Foo as Integer", "Foo", {}, "Integer"},
        {"Foo()", "Foo", {}, ""},
        {"  Concat ( a AS STRING , b As String = \"!\" )  AS String ",
         "Concat",
         {{"a", "String"}, {"b", "String", "\"!\""}},
         "String"},
    };
    for (const DeclarationCase& c : cases) {
        SCOPED_TRACE(c.text);
        Declaration d = parseDeclaration(c.text);
        EXPECT_EQ(d.name, c.name);
        EXPECT_EQ(d.resultType, c.result);
        ASSERT_EQ(d.params.size(), c.params.size());
        for (size_t i = 0; i < c.params.size(); ++i) {
            EXPECT_EQ(d.params[i].name, c.params[i].name);
            EXPECT_EQ(d.params[i].type, c.params[i].type);
            EXPECT_EQ(d.params[i].defaultValue, c.params[i].defaultValue);
            EXPECT_EQ(d.params[i].extends, c.params[i].extends);
            EXPECT_EQ(d.params[i].assigns, c.params[i].assigns);
        }
    }
}

TEST(Declarations, MalformedDeclarationsAreRejected) {
    for (const char* text :
         {"Foo(extends ref as C, , assigns value)", "Foo(a as)", "Foo(a integer)",
          "Foo(a as integer", "(a as integer)", "Foo(a as integer) integer",
          "Foo(a as integer, extends b as C)", "Foo(assigns a as integer, b as T)",
          "Foo(a as integer =)", "", "Foo(1a as integer)"}) {
        EXPECT_THROW(parseDeclaration(text), std::invalid_argument) << text;
    }
}

// ---- Registration and knobs -------------------------------------------------------------------

class HostCalls : public FixtureHostTest {};

TEST_F(HostCalls, RegistrationIsRecordedAsAnnounced) {
    EXPECT_EQ(host().announcedInterfaceVersion(), 7u);
    ASSERT_EQ(host().modules().size(), 1u);
    const xhost::RegisteredModule& m = host().modules()[0];
    EXPECT_EQ(m.name, "FixtureModule");
    EXPECT_EQ(m.flags, 4u);
    EXPECT_EQ(m.methods.size(), 11u);
    EXPECT_EQ(m.methods[0].declarationText, "EchoFixture(s as string) as string");
    EXPECT_EQ(m.methods[0].module, "FixtureModule");
    ASSERT_EQ(m.properties.size(), 1u);
    EXPECT_EQ(m.properties[0].name, "Debugging");
    EXPECT_EQ(m.properties[0].type, "Boolean");
    EXPECT_EQ(m.properties[0].flags, 0x26u);
    EXPECT_EQ(m.properties[0].attributes,
              (std::vector<std::pair<std::string, std::string>>{{"Hidden", ""}}));
    EXPECT_EQ(host().globalMethods().size(), 7u);
    EXPECT_EQ(host().globalMethods()[0].module, "");
    ASSERT_EQ(host().classExtensions().size(), 1u);
    const auto& ext = host().classExtensions()[0];
    EXPECT_EQ(ext.className, "StyledText");
    EXPECT_EQ(ext.flags, 0x308u);
    ASSERT_EQ(ext.methods.size(), 1u);
    EXPECT_NE(ext.methods[0].setter, nullptr);
    EXPECT_EQ(host().overloads("addfixture").size(), 2u);
}

TEST(HostKnobs, HiddenNamesAreUnknownToTheResolver) {
    xhost::HostOptions o = fixtureOptions();
    o.hidden = {"PluginRegisterModule", "REALYieldToRB", "Len(s as string) as integer"};
    xhost::Host host(o);
    EXPECT_TRUE(host.modules().empty());
    EXPECT_EQ(host.globalMethods().size(), 7u);
    EXPECT_EQ(xhost::resolve("REALYieldToRB"), nullptr);
    EXPECT_NE(xhost::resolve("REALLockString"), nullptr);
    EXPECT_EQ(xhost::resolve("NoSuchService"), nullptr);
    EXPECT_EQ(host.call("LenFixture", {Value::string("abc")}).value.asInteger(), -1);
    EXPECT_FALSE(host.setDebugging(true));
    EXPECT_EQ(host.debugging(), std::nullopt);
}

TEST(HostKnobs, VersionAndRuntimeAreAnswered) {
    xhost::HostOptions o = fixtureOptions();
    o.version = 2012.5;
    o.inRuntime = false;
    xhost::Host host(o);
    EXPECT_EQ(reinterpret_cast<double (*)()>(xhost::resolve("REALGetRBVersion"))(), 2012.5);
    EXPECT_FALSE(reinterpret_cast<RBBoolean (*)()>(xhost::resolve("REALinRuntime"))());
}

TEST(HostLifetime, ValuesOutliveTheirHostSafely) {
    Value stale;
    {
        xhost::Host host(fixtureOptions());
        EXPECT_EQ(xhost::Host::current(), &host);
        stale = Value::string("left behind");
    }
    EXPECT_EQ(xhost::Host::current(), nullptr);
    EXPECT_THROW(stale.bytes(), std::logic_error);
    EXPECT_THROW(Value::string("no host"), std::logic_error);
    xhost::HostOptions missing = fixtureOptions();
    missing.pluginPath = "/nonexistent/plugin.so";
    EXPECT_THROW(xhost::Host bad(missing), std::runtime_error);
    EXPECT_EQ(xhost::Host::current(), nullptr);
    // A host that fails to load leaves the active one active.
    xhost::Host host(fixtureOptions());
    EXPECT_THROW(xhost::Host bad(missing), std::runtime_error);
    EXPECT_EQ(xhost::Host::current(), &host);
}

// ---- Overloads and conventions ----------------------------------------------------------------

TEST_F(HostCalls, OverloadChoicePrefersExactCountThenExactTypes) {
    struct Case {
        std::vector<Value> args;
        Value::Type type;
        double expected;
    };
    const Case cases[] = {
        {{I(1), I(2)}, Value::Type::Integer, 3},     // both fit; integers are exact
        {{I(1)}, Value::Type::Integer, 11},          // the default fills b
        {{D(1.5), I(2)}, Value::Type::Double, 3.5},  // Integer widens to Double
        {{I(1), D(2.5)}, Value::Type::Double, 3.5},
    };
    for (const Case& c : cases) {
        Value v = call("AddFixture", c.args);
        ASSERT_EQ(v.type(), c.type);
        EXPECT_EQ(v.asDouble(), c.expected);
    }
    EXPECT_EQ(callBytes("ConcatFixture", {S("a")}), "a!");
    EXPECT_EQ(callBytes("concatfixture", {S("a"), S("b")}), "ab");
}

TEST_F(HostCalls, NothingFitsNamesTheProblemAndTheOverloads) {
    try {
        host().call("AddFixture", {S("x")});
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        std::string m = e.what();
        EXPECT_NE(m.find("(String)"), std::string::npos) << m;
        EXPECT_NE(m.find("AddFixture(a as integer, b as integer = 10) as integer"),
                  std::string::npos)
            << m;
        EXPECT_NE(m.find("AddFixture(a as double, b as double) as double"), std::string::npos);
        EXPECT_EQ(m.find('\n'), std::string::npos);
    }
    EXPECT_THROW(host().call("NoSuchMethod", {}), std::invalid_argument);
    EXPECT_THROW(host().call("EchoFixture", {S("a"), S("b")}), std::invalid_argument);
    EXPECT_THROW(host().call("NotFixture", {Nil()}), std::invalid_argument);
    EXPECT_THROW(host().call("NotFixture", {}), std::invalid_argument);
}

TEST_F(HostCalls, EveryCallingConventionRoundTrips) {
    Value echoed = call("EchoFixture", {S("\xC3\xA9")});
    EXPECT_EQ(echoed.bytes(), "\xC3\xA9");
    EXPECT_EQ(echoed.encoding(), kREALTextEncodingUTF8);
    Value nilEcho = call("EchoFixture", {Nil()});
    EXPECT_EQ(nilEcho.type(), Value::Type::String);
    EXPECT_TRUE(nilEcho.isNil());
    EXPECT_FALSE(call("NotFixture", {B(true)}).asBoolean());
    EXPECT_TRUE(call("NotFixture", {B(false)}).asBoolean());
    std::string buffer = "\x01\x02\xFF";
    EXPECT_EQ(call("PtrSumFixture", {Value::pointer(buffer.data()), I(3)}).asInteger(), 258);
    EXPECT_EQ(call("PtrSumFixture", {Nil(), I(3)}).asInteger(), 0);
    Value mb = call("MemoryFixture", {I(4)});
    EXPECT_EQ(mb.type(), Value::Type::MemoryBlock);
    EXPECT_EQ(mb.bytes(), std::string("\0\1\2\3", 4));
    EXPECT_EQ(call("MemorySizeFixture", {MB("abc")}).asInteger(), 3);
    EXPECT_EQ(call("MemorySizeFixture", {Nil()}).asInteger(), 0);
    EXPECT_EQ(call("SplitFixture", {S("a,b,,c")}).strings(),
              (std::vector<std::string>{"a", "b", "", "c"}));
    EXPECT_EQ(call("SplitFixture", {S("")}).strings(), std::vector<std::string>{""});
    Value none = call("YieldFixture", {I(3)});
    EXPECT_EQ(none.type(), Value::Type::Nil);
    EXPECT_EQ(host().yieldCount(), 3);
}

TEST_F(HostCalls, TheEmptyStringIsPassedAsNil) {
    Value empty = S("");
    EXPECT_EQ(empty.type(), Value::Type::String);
    EXPECT_TRUE(empty.isNil());
    EXPECT_EQ(empty.stringHandle(), nullptr);
    EXPECT_EQ(empty.bytes(), "");
    EXPECT_EQ(empty.encoding(), kREALTextEncodingUnknown);
    EXPECT_EQ(host().liveStrings(), 0u);
    EXPECT_TRUE(call("EchoFixture", {empty}).isNil());
}

TEST_F(HostCalls, ValuesCopyAndReleaseTheirReferences) {
    {
        Value a = S("x");
        Value b = a;
        Value c = std::move(a);
        EXPECT_EQ(host().liveStrings(), 1u);
        EXPECT_EQ(b.bytes(), "x");
        b = MB("m");
        EXPECT_EQ(host().liveObjects(), 1u);
    }
    EXPECT_EQ(host().liveStrings(), 0u);
    EXPECT_EQ(host().liveObjects(), 0u);
}

class FailingMemoryBlocks : public FixtureHostTest {
    xhost::HostOptions options() const override {
        xhost::HostOptions o = fixtureOptions();
        o.failMemoryBlocks = true;
        return o;
    }
};

TEST_F(FailingMemoryBlocks, ConstructorLeavesTheBlockEmpty) {
    Value mb = call("MemoryFixture", {I(4)});
    EXPECT_FALSE(mb.isNil());
    EXPECT_EQ(mb.bytes(), "");
}

TEST_F(HostCalls, AnAllocationFailingInsideAServiceGivesItsNeutralResult) {
#ifdef KXT_SANITIZED
    GTEST_SKIP() << "AddressSanitizer ends the process on an allocation this size";
#endif
    auto create = service<HostService::RuntimeArrayCreateSingleDimBoundedArray>();
    // More elements than the address space can hold: the array's own allocation fails.
    EXPECT_EQ(create(kREALArrayTypeString, RBInteger(1) << 45), nullptr);
    EXPECT_EQ(host().serviceFailures(), 1u);
}

// ---- Exceptions -------------------------------------------------------------------------------

TEST_F(HostCalls, RaisedExceptionsComeBackWithTheCall) {
    struct Case {
        std::string raised, expectedClass;
    };
    const Case cases[] = {{"OutOfBoundsException", "OutOfBoundsException"},
                          {"OutOfMemoryException", "OutOfMemoryException"},
                          {"NoSuchException", "RuntimeException"}};
    for (const Case& c : cases) {
        CallResult r = host().call("RaiseFixture", {S(c.raised), S("boom \xC3\xA9")});
        ASSERT_TRUE(r.exception.has_value());
        EXPECT_EQ(r.exception->className, c.expectedClass);
        EXPECT_EQ(r.exception->message, "boom \xC3\xA9");
        EXPECT_EQ(r.exception->errorNumber, 42);
        EXPECT_TRUE(r.value.isNil());
    }
    EXPECT_FALSE(host().call("EchoFixture", {S("x")}).exception.has_value());
}

TEST_F(HostCalls, TheGuardReturnsTheExceptionInsteadOfRaisingIt) {
    CallResult r = host().call("GuardFixture", {S("OutOfMemoryException")});
    EXPECT_FALSE(r.exception.has_value());
    EXPECT_EQ(r.value.bytes(), "caught 42");
}

// ---- Debugging, RTF wiring, accounting ---------------------------------------------------------

TEST_F(HostCalls, DebuggingGoesThroughTheRegisteredProperty) {
    EXPECT_EQ(host().debugging(), std::optional<bool>(false));
    EXPECT_TRUE(host().setDebugging(true));
    EXPECT_EQ(host().debugging(), std::optional<bool>(true));
}

TEST_F(HostCalls, RTFAccessUsesTheClassExtension) {
    Value text = host().newStyledText({{"Hi"}});
    EXPECT_EQ(host().getRTF(text).value.bytes(), "rtf:Hi");
    EXPECT_EQ(host().getRTF(text, true).value.bytes(), "skip:Hi");
    EXPECT_FALSE(host().setRTF(text, S("new text")).exception.has_value());
    auto runs = host().styleRuns(text);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].text, "new text");
}

TEST(HostAccounting, LeaksAndOverReleasesAreVisible) {
    xhost::Host host(fixtureOptions());
    {
        Value kept = Value::string("kept by the plugin");
        host.call("KeepFixture", {kept});
    }
    EXPECT_EQ(host.liveStrings(), 1u);
    EXPECT_NE(host.describeLive().find("kept by the plugin"), std::string::npos);
    EXPECT_TRUE(host.misuses().empty());
    {
        Value v = Value::string("released twice");
        host.call("ReleaseFixture", {v});
    }
    EXPECT_EQ(host.misuses().size(), 1u) << host.describeLive();
}

}  // namespace
