// kxt: loads the plugin into the emulated host and runs one command against it.
//
// Exit status: 0 done, 1 the method raised an exception, 2 bad command line (unknown method,
// wrong arguments), 3 the plugin could not be loaded.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "Commands.h"
#include "Encodings.h"

namespace kxt_tool {
namespace {

const char* const kArgumentHelp = R"(
Global options (before the command):
  --plugin PATH        the plugin to load (default: the one built with kxt)
  --host-version V     what the host answers for its version (default 2019.03)
  --ide                run as inside the IDE (REALinRuntime false)
  --debug              switch the plugin's Debugging property on first
  --hide NAME          the resolver pretends not to know NAME (repeatable)
  --hex                print byte results as hex digits
  --encoding           print a string result's encoding name on a line before it

Arguments of `call` are read by the type of the parameter they land on:
  String, MemoryBlock and Ptr parameters take text:
    hello              UTF-8 text
    @PATH              a file's bytes, as UTF-8 text
    hex:48656C6C6F     raw bytes with no encoding (blanks between digits allowed)
    ENC:text           the text converted to the encoding ENC (see `kxt encodings`),
                       e.g. latin1:café, utf16:abc, cp1252:@PATH
    ENC:hex:E9         raw bytes tagged with the encoding ENC
    text:nil           literal text (for text that looks like one of these forms)
    mb:ARG             ARG as a MemoryBlock (chooses the MemoryBlock overload)
    nil                Nil
  A Ptr parameter gets a buffer holding the argument's bytes; pass its size yourself.
  Integer: 42, -1, 0xFF, &hFF.  Double: 1.5, 1e300, nan, inf, -inf.  Boolean: true, false.
  Other classes take only nil.

Results: strings and MemoryBlocks print their bytes and a newline, string arrays one element per
line, numbers and booleans as text. An exception prints "Class: message" on stderr (status 1).
)";

int printHelp(const GlobalOptions&, const std::vector<std::string>&) {
    std::printf("usage: kxt [OPTIONS] COMMAND [ARGS]\n\nCommands:\n");
    for (const Command& c : commands()) {
        std::printf("  %-10s %s\n             %s\n", c.name, c.usage, c.summary);
    }
    std::printf("%s", kArgumentHelp);
    return 0;
}

int printEncodings(const GlobalOptions&, const std::vector<std::string>& args) {
    if (!args.empty()) throw UsageError("encodings takes no arguments");
    std::printf("%-12s %-24s %s\n", "code", "name", "prefixes");
    std::printf("%-12s %-24s %s\n", "0xFFFF", "none", "none raw");
    for (const auto& e : xhost::encodings::all()) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%X", e.code);
        std::printf("%-12s %-24s %s\n", code, e.name, e.aliases);
    }
    return 0;
}

KXT_COMMAND(help, "help", "", "this text", &printHelp);
KXT_COMMAND(encodings, "encodings", "", "the encodings the host knows, with their prefixes",
            &printEncodings);

int run(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    GlobalOptions options;
    size_t i = parseOptions(args, 0, options);
    if (i >= args.size()) {
        printHelp(options, {});
        return 2;
    }
    for (const Command& c : commands()) {
        if (args[i] == c.name) {
            return c.run(options, std::vector<std::string>(args.begin() + std::ptrdiff_t(i) + 1,
                                                           args.end()));
        }
    }
    std::string names;
    for (const Command& c : commands()) names += std::string(names.empty() ? "" : ", ") + c.name;
    throw UsageError("unknown command " + args[i] + " (commands: " + names + ")");
}

}  // namespace
}  // namespace kxt_tool

int main(int argc, char** argv) {
    try {
        return kxt_tool::run(argc, argv);
    } catch (const kxt_tool::UsageError& e) {
        std::fprintf(stderr, "kxt: %s\n", e.what());
        return 2;
    } catch (const std::invalid_argument& e) {
        std::fprintf(stderr, "kxt: %s\n", e.what());
        return 2;
    } catch (const std::runtime_error& e) {
        std::fprintf(stderr, "kxt: %s\n", e.what());
        return 3;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kxt: %s\n", e.what());
        return 2;
    } catch (...) {
        std::fprintf(stderr, "kxt: unexpected failure\n");
        return 2;
    }
}
