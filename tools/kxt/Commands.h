// The kxt tool's commands and what they share: global options, loading the plugin, reading
// arguments and printing results. A command lives in its own source and registers itself with
// KXT_COMMAND, so adding one needs no change to the dispatcher.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "XojoHost.h"

namespace kxt_tool {

struct GlobalOptions {
    xhost::HostOptions host;
    bool debug = false;         // switch Debugging on before the command runs
    bool hex = false;           // print byte results as hex
    bool showEncoding = false;  // print a string result's encoding name first
};

// Wrong command line: a one-line message, exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using CommandFn = int (*)(const GlobalOptions& options, const std::vector<std::string>& args);

struct Command {
    const char* name;
    const char* usage;    // arguments after the name, e.g. "NAME ARG..."
    const char* summary;  // one line
    CommandFn run;
};

bool registerCommand(const Command& command);
const std::vector<Command>& commands();

#define KXT_COMMAND(id, ...) \
    [[maybe_unused]] static const bool kxtCommand_##id = ::kxt_tool::registerCommand({__VA_ARGS__})

// Consumes leading "--option" words of args into options; returns the index of the first word
// that is not an option. Throws UsageError for an unknown option or a missing value.
size_t parseOptions(const std::vector<std::string>& args, size_t start, GlobalOptions& options);

// Loads the plugin; with --debug switches Debugging on (warning on stderr when the plugin did not
// register it). Throws std::runtime_error when the plugin cannot be loaded.
std::unique_ptr<xhost::Host> loadHost(const GlobalOptions& options);

// Bytes and encoding of a text argument (see the syntax in main.cpp's help); nullopt for "nil".
struct TextArgument {
    std::string bytes;
    uint32_t encoding = 0;
    bool memoryBlock = false;  // written with the "mb:" prefix
};
std::optional<TextArgument> parseTextArgument(const std::string& arg);

// Prints a value as the options ask.
void printValue(const xhost::Value& value, const GlobalOptions& options, FILE* out = stdout);

// Calls NAME with command-line arguments typed by the overload that fits (the syntax of
// `kxt call`). Throws UsageError when no overload takes them.
xhost::CallResult callWithArguments(xhost::Host& host, const std::string& name,
                                    const std::vector<std::string>& args);

// What `kxt rtf` prints for these RTF bytes: the runs and paragraphs a new StyledText gets from
// assigning them to RTFDataKXT, and with roundTrip the RTF read back. Returns 1 when the
// property raised (the exception goes to err), else 0.
int reportRTF(xhost::Host& host, const std::string& rtf, bool roundTrip, bool skipParagraphs,
              FILE* out, FILE* err);

}  // namespace kxt_tool
