// The kxt tool, run as a program against the fixture plugin: argument syntax, result printing,
// exit statuses.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "KxtTest.h"

namespace {

struct ToolRun {
    int status;
    std::string out, err;
};

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

ToolRun kxt(const std::vector<std::string>& args, bool fixture = true) {
    // ctest runs the tests of this file in parallel processes: one file per process.
    std::string errPath = testing::TempDir() + "kxt_tool_test." + std::to_string(getpid()) + ".err";
    std::string cmd = kxt_test::programCommand(quote(std::string(KXT_BINARY_DIR) + "/kxt"));
    if (fixture) cmd += " --plugin " + quote(KXT_HOST_FIXTURE);
    for (const auto& a : args) cmd += " " + quote(a);
    cmd += " 2>" + quote(errPath);
    ToolRun r;
    FILE* p = popen(cmd.c_str(), "r");
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int raw = pclose(p);
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.err = slurp(errPath);
    std::remove(errPath.c_str());
    return r;
}

struct Case {
    std::vector<std::string> args;
    int status;
    std::string out;
};

TEST(KxtTool, ArgumentsAreTypedByTheOverloadAndResultsPrinted) {
    const Case cases[] = {
        {{"call", "AddFixture", "1", "2"}, 0, "3\n"},
        {{"call", "AddFixture", "1"}, 0, "11\n"},
        {{"call", "AddFixture", "1.5", "2"}, 0, "3.5\n"},
        {{"call", "AddFixture", "nan", "1"}, 0, "nan\n"},
        {{"call", "AddFixture", "-inf", "1"}, 0, "-inf\n"},
        {{"call", "AddFixture", "0x10", "&h10"}, 0, "32\n"},
        {{"call", "NotFixture", "true"}, 0, "false\n"},
        {{"call", "EchoFixture", "h\xC3\xA9llo"}, 0, "h\xC3\xA9llo\n"},
        {{"call", "EchoFixture", "nil"}, 0, "\n"},
        {{"call", "EchoFixture", "text:nil"}, 0, "nil\n"},
        {{"call", "EchoFixture", "http://x"}, 0, "http://x\n"},
        {{"--hex", "call", "EchoFixture", "hex:00 ff"}, 0, "00ff\n"},
        {{"--hex", "call", "EchoFixture", "utf16:\xC3\xA9"}, 0, "e900\n"},
        {{"--encoding", "call", "EchoFixture", "latin1:\xC3\xA9"}, 0, "ISO Latin-1\n\xE9\n"},
        {{"--encoding", "call", "EchoFixture", "hex:41"}, 0, "none\nA\n"},
        {{"--encoding", "call", "EchoFixture", "cp1252:hex:80"}, 0, "Windows Latin-1\n\x80\n"},
        {{"call", "PtrSumFixture", "hex:0102ff", "3"}, 0, "258\n"},
        {{"--hex", "call", "MemoryFixture", "3"}, 0, "000102\n"},
        {{"call", "MemorySizeFixture", "mb:abc"}, 0, "3\n"},
        {{"call", "MemorySizeFixture", "abcd"}, 0, "4\n"},
        {{"call", "SplitFixture", "a,b,"}, 0, "a\nb\n\n"},
        {{"call", "YieldFixture", "2"}, 0, ""},
    };
    for (const Case& c : cases) {
        ToolRun r = kxt(c.args);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.args) << r.err;
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.args);
    }
}

TEST(KxtTool, FilesAreReadAsUTF8Text) {
    std::string path = testing::TempDir() + "kxt_tool_input." + std::to_string(getpid()) + ".txt";
    std::ofstream(path, std::ios::binary) << "from\na file";
    EXPECT_EQ(kxt({"call", "EchoFixture", "@" + path}).out, "from\na file\n");
    EXPECT_EQ(kxt({"call", "EchoFixture", "@/nonexistent/file"}).status, 2);
    std::remove(path.c_str());
}

TEST(KxtTool, ProblemsGiveOneLineAndAStatus) {
    const struct {
        std::vector<std::string> args;
        int status;
        std::string errPart;
    } cases[] = {
        {{"call", "NotFixture", "maybe"}, 2, "NotFixture(b as Boolean) as Boolean"},
        {{"call", "AddFixture", "x"}, 2, "\"x\" is not an integer"},
        {{"call", "EchoFixture"}, 2, "too few arguments"},
        {{"call", "EchoFixture", "a", "b"}, 2, "too many arguments"},
        {{"call", "EchoFixture", "hex:abc"}, 2, "odd number of hex digits"},
        {{"call", "NoSuchMethod"}, 2, "no method named NoSuchMethod"},
        {{"call"}, 2, "needs a method name"},
        {{"frobnicate"}, 2, "unknown command frobnicate"},
        {{"--bogus", "list"}, 2, "unknown option --bogus"},
        {{"--host-version", "abc", "list"}, 2, "bad host version"},
        {{"call", "RaiseFixture", "OutOfBoundsException", "boom"},
         1,
         "OutOfBoundsException: boom\n"},
    };
    for (const auto& c : cases) {
        ToolRun r = kxt(c.args);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.args);
        EXPECT_NE(r.err.find(c.errPart), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    ToolRun missing = kxt({"--plugin", "/nonexistent/plugin.so", "list"}, false);
    EXPECT_EQ(missing.status, 3);
}

TEST(KxtTool, ListGroupsRegistrationsByModule) {
    ToolRun r = kxt({"list"});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* part :
         {"module FixtureModule (version 7, flags 0x4, 11 methods)",
          "0x4     EchoFixture(s as string) as string", "property Debugging as Boolean  [Hidden]",
          "(global methods, 7)", "class extension StyledText (version 7, flags 0x308)",
          "RTFDataKXT(SkipParagraphs as boolean = false) as string  (with setter)"}) {
        EXPECT_NE(r.out.find(part), std::string::npos) << part << "\n" << r.out;
    }
}

TEST(KxtTool, DebugWarnsWhenThePluginHasNoDebuggingProperty) {
    ToolRun r = kxt({"--hide", "PluginRegisterModule", "--debug", "call", "LenFixture", "abc"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "3\n");
    EXPECT_NE(r.err.find("no Debugging property"), std::string::npos) << r.err;
    EXPECT_EQ(kxt({"--debug", "call", "LenFixture", "abc"}).err, "");
}

}  // namespace
