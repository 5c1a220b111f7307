// kxt list: what the plugin registered, grouped by module.
#include <cstdio>

#include "Commands.h"

namespace kxt_tool {
namespace {

std::string attributes(const std::vector<std::pair<std::string, std::string>>& list) {
    std::string out;
    for (const auto& [name, value] : list) {
        out += "  [" + name + (value.empty() ? "" : "=" + value) + "]";
    }
    return out;
}

void printMethod(const xhost::RegisteredMethod& m) {
    std::printf("  0x%-5X %s%s%s%s\n", m.flags, m.declarationText.c_str(),
                m.setter ? "  (with setter)" : "", attributes(m.attributes).c_str(),
                m.parseError.empty() ? "" : ("  !! " + m.parseError).c_str());
}

void printProperty(const xhost::RegisteredProperty& p) {
    std::printf("  0x%-5X property %s as %s%s\n", p.flags, p.name.c_str(), p.type.c_str(),
                attributes(p.attributes).c_str());
}

int runList(const GlobalOptions& global, const std::vector<std::string>& args) {
    GlobalOptions options = global;
    size_t i = parseOptions(args, 0, options);
    if (i < args.size()) throw UsageError("list takes no arguments, got " + args[i]);
    std::unique_ptr<xhost::Host> host = loadHost(options);
    std::printf("host version %g, plugin interface version %u\n", options.host.version,
                host->announcedInterfaceVersion());
    for (const xhost::RegisteredModule& m : host->modules()) {
        std::printf("\nmodule %s (version %u, flags 0x%X, %zu methods)\n", m.name.c_str(),
                    m.version, m.flags, m.methods.size());
        for (const auto& method : m.methods) printMethod(method);
        for (const auto& p : m.properties) printProperty(p);
    }
    if (!host->globalMethods().empty()) {
        std::printf("\n(global methods, %zu)\n", host->globalMethods().size());
        for (const auto& method : host->globalMethods()) printMethod(method);
    }
    for (const xhost::RegisteredClassExtension& c : host->classExtensions()) {
        std::printf("\nclass extension %s (version %u, flags 0x%X)\n", c.className.c_str(),
                    c.version, c.flags);
        for (const auto& method : c.methods) printMethod(method);
        for (const auto& p : c.properties) printProperty(p);
    }
    return 0;
}

}  // namespace

KXT_COMMAND(list, "list", "", "show what the plugin registered, grouped by module", &runList);

}  // namespace kxt_tool
