// kxt call NAME ARG...: calls a registered method with arguments typed by its declaration.
#include <cerrno>
#include <cstdio>
#include <deque>
#include <iostream>

#include "Commands.h"

namespace kxt_tool {
namespace {

struct Attempt {
    std::vector<xhost::Value> values;
    std::deque<std::string> buffers;  // Ptr arguments point into these
    int preferred = 0;                // arguments written for exactly this parameter type
    std::string problem;
};

// Reads one argument as a parameter of the given type; returns an empty problem on success.
std::string convert(const std::string& arg, const std::string& type, Attempt& a) {
    if (type == "Integer") {
        errno = 0;
        char* end = nullptr;
        bool hex = arg.size() > 2 && (arg.compare(0, 2, "0x") == 0 || arg.compare(0, 2, "&h") == 0);
        long long v =
            hex ? std::strtoll(arg.c_str() + 2, &end, 16) : std::strtoll(arg.c_str(), &end, 10);
        if (arg.empty() || *end != '\0' || errno != 0) return "\"" + arg + "\" is not an integer";
        a.values.push_back(xhost::Value::integer(v));
        return {};
    }
    if (type == "Double") {
        char* end = nullptr;
        double v = std::strtod(arg.c_str(), &end);
        if (arg.empty() || *end != '\0') return "\"" + arg + "\" is not a number";
        a.values.push_back(xhost::Value::real(v));
        return {};
    }
    if (type == "Boolean") {
        if (arg != "true" && arg != "false") return "\"" + arg + "\" is not true or false";
        a.values.push_back(xhost::Value::boolean(arg == "true"));
        return {};
    }
    if (type == "String" || type == "MemoryBlock" || type == "Ptr") {
        std::optional<TextArgument> t = parseTextArgument(arg);
        if (!t) {
            a.values.push_back(xhost::Value::nil());
        } else if (type == "String") {
            if (t->memoryBlock) return "\"" + arg + "\" is a MemoryBlock, not a String";
            a.values.push_back(xhost::Value::string(t->bytes, t->encoding));
            ++a.preferred;
        } else if (type == "MemoryBlock") {
            a.values.push_back(xhost::Value::memoryBlock(t->bytes));
            a.preferred += t->memoryBlock;
        } else {
            a.buffers.push_back(t->bytes);
            a.values.push_back(xhost::Value::pointer(a.buffers.back().data()));
        }
        return {};
    }
    if (arg == "nil") {
        a.values.push_back(xhost::Value::nil());
        return {};
    }
    return "a " + type + " parameter takes only nil here";
}

}  // namespace

xhost::CallResult callWithArguments(xhost::Host& host, const std::string& name,
                                    const std::vector<std::string>& rest) {
    auto candidates = host.overloads(name);
    if (candidates.empty()) {
        throw UsageError("no method named " + name + " is registered (kxt list shows them)");
    }
    const xhost::RegisteredMethod* best = nullptr;
    std::unique_ptr<Attempt> chosen;
    bool bestExactCount = false;
    std::string problems;
    for (const xhost::RegisteredMethod* m : candidates) {
        const auto& params = m->declaration.params;
        auto attempt = std::make_unique<Attempt>();
        if (!m->parseError.empty()) {
            attempt->problem = m->parseError;
        } else if (rest.size() > params.size()) {
            attempt->problem = "too many arguments";
        } else if (rest.size() < params.size() && !params[rest.size()].defaultValue) {
            attempt->problem = "too few arguments";
        }
        for (size_t k = 0; attempt->problem.empty() && k < rest.size(); ++k) {
            attempt->problem = convert(rest[k], params[k].type, *attempt);
        }
        if (!attempt->problem.empty()) {
            problems += "; \"" + m->declarationText + "\": " + attempt->problem;
            continue;
        }
        bool exactCount = rest.size() == params.size();
        if (best == nullptr || (exactCount && !bestExactCount) ||
            (exactCount == bestExactCount && attempt->preferred > chosen->preferred)) {
            best = m;
            chosen = std::move(attempt);
            bestExactCount = exactCount;
        }
    }
    if (best == nullptr) {
        throw UsageError("no overload of " + name + " takes these " + std::to_string(rest.size()) +
                         " argument(s)" + problems);
    }
    return host.callMethod(*best, chosen->values);
}

namespace {

int runCall(const GlobalOptions& global, const std::vector<std::string>& args) {
    GlobalOptions options = global;
    size_t i = parseOptions(args, 0, options);
    if (i >= args.size()) throw UsageError("call needs a method name");
    std::vector<std::string> rest(args.begin() + static_cast<long>(i) + 1, args.end());
    std::unique_ptr<xhost::Host> host = loadHost(options);
    xhost::CallResult result = callWithArguments(*host, args[i], rest);
    if (result.exception) {
        std::fprintf(stderr, "%s: %s\n", result.exception->className.c_str(),
                     result.exception->message.c_str());
        return 1;
    }
    printValue(result.value, options);
    std::fflush(stdout);
    return 0;
}

}  // namespace

KXT_COMMAND(call, "call", "[--hex] [--encoding] NAME ARG...",
            "call a method; arguments are typed by the overload that fits", &runCall);

}  // namespace kxt_tool
