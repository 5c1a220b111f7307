// The kxt tool, run as a program against the plugin: argument syntax, result printing,
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

ToolRun kxt(const std::vector<std::string>& args) {
    // ctest runs the tests of this file in parallel processes: one file per process.
    std::string errPath = testing::TempDir() + "kxt_tool_test." + std::to_string(getpid()) + ".err";
    std::string cmd = kxt_test::programCommand(quote(std::string(KXT_BINARY_DIR) + "/kxt"));
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

// ReplaceLineEndingsKXT with a newline the text does not have hands its text back as it is.
TEST(KxtTool, ArgumentsAreTypedByTheOverloadAndResultsPrinted) {
    const Case cases[] = {
        {{"call", "StrKXT", "1.55"}, 0, "1.550\n"},
        {{"call", "StrKXT", "-inf"}, 0, "-inf\n"},
        {{"call", "ScientificStrKXT", "0x10", "&h2"}, 0, "1.60e+01\n"},
        {{"call", "HasPrefixKXT", "abc", "a"}, 0, "true\n"},
        {{"call", "LevenshteinDistanceKXT", "kitten", "sitting"}, 0, "0.5\n"},
        {{"call", "ReplaceLineEndingsKXT", "h\xC3\xA9llo", "x"}, 0, "h\xC3\xA9llo\n"},
        {{"call", "ReplaceLineEndingsKXT", "nil", "x"}, 0, "\n"},
        {{"call", "ReplaceLineEndingsKXT", "text:nil", "x", "true"}, 0, "nil\n"},
        {{"--hex", "call", "EncodingToHexKXT", "hex:00 ff"}, 0, "30304646\n"},
        {{"--hex", "call", "StringXORKXT", "utf16:\xC3\xA9", "hex:00"}, 0, "e900\n"},
        {{"--encoding", "call", "ReplaceLineEndingsKXT", "latin1:\xC3\xA9", "x"},
         0,
         "ISO Latin-1\n\xE9\n"},
        {{"--encoding", "call", "ReplaceLineEndingsKXT", "cp1252:hex:80", "x"},
         0,
         "Windows Latin-1\n\x80\n"},
        {{"call", "CheckUTF8KXT", "hex:41ff42", "3", "?"}, 0, "A?B\n"},
        {{"--hex", "call", "_yDecodeMemoryKXT", "mb:abc"}, 0, "373839\n"},
        {{"call", "GetStringsFromDataKXT",
          "a\x01"
          "bcd\x01"
          "ef",
          "2"},
         0,
         "bcd\n"},
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
    EXPECT_EQ(kxt({"call", "ReplaceLineEndingsKXT", "@" + path, "x"}).out, "fromxa file\n");
    EXPECT_EQ(kxt({"call", "ReplaceLineEndingsKXT", "@/nonexistent/file", "x"}).status, 2);
    std::remove(path.c_str());
}

TEST(KxtTool, ProblemsGiveOneLineAndAStatus) {
    const struct {
        std::vector<std::string> args;
        int status;
        std::string errPart;
    } cases[] = {
        {{"call", "RandomBytesStringKXT", "1", "maybe"}, 2, "\"maybe\" is not true or false"},
        {{"call", "StrKXT", "x"}, 2, "StrKXT(d as double) as string"},
        {{"call", "StrKXT"}, 2, "too few arguments"},
        {{"call", "StrKXT", "1", "2"}, 2, "too many arguments"},
        {{"call", "HasPrefixKXT", "hex:abc", "a"}, 2, "odd number of hex digits"},
        {{"call", "NoSuchMethod"}, 2, "no method named NoSuchMethod"},
        {{"call"}, 2, "needs a method name"},
        {{"frobnicate"}, 2, "unknown command frobnicate"},
        {{"--bogus", "list"}, 2, "unknown option --bogus"},
        {{"--host-version", "abc", "list"}, 2, "bad host version"},
        {{"call", "CreateStringKXT", "9223372036854775807", "ab"},
         1,
         "OutOfMemoryException: Failed to allocate memory.\n"},
    };
    for (const auto& c : cases) {
        ToolRun r = kxt(c.args);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.args);
        EXPECT_NE(r.err.find(c.errPart), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    ToolRun missing = kxt({"--plugin", "/nonexistent/plugin.so", "list"});
    EXPECT_EQ(missing.status, 3);
}

TEST(KxtTool, ListGroupsRegistrationsByModule) {
    ToolRun r = kxt({"list"});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* part :
         {"module StringGlobalsKXT (version 13, flags 0x4, 72 methods)",
          "0x14    StrKXT(d as double) as string", "property Debugging as Boolean  [Hidden]"}) {
        EXPECT_NE(r.out.find(part), std::string::npos) << part << "\n" << r.out;
    }
}

TEST(KxtTool, DebugWarnsWhenThePluginHasNoDebuggingProperty) {
    ToolRun r = kxt({"--hide", "PluginRegisterModule", "--debug", "list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("no Debugging property"), std::string::npos) << r.err;
    EXPECT_EQ(kxt({"--debug", "call", "StrKXT", "1"}).err.find("warning"), std::string::npos);
}

}  // namespace
