#include "rbclassutil.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "REALplugin.h"
#include "rbDebug.h"

namespace {

REALattribute gHiddenAttribute[] = {{"Hidden", ""}};

// Registration messages are diagnostics like every other; they need Debugging on.
void logRegistration(const char* text) {
    if (gDebugging) LogMessage(text);
}

}  // namespace

REALproperty gDebuggingProperty = {nullptr,
                                   "Debugging",
                                   "Boolean",
                                   kREALFlagsDebuggingProperty,
                                   reinterpret_cast<REALproc>(getDebugging),
                                   reinterpret_cast<REALproc>(setDebugging),
                                   0,
                                   nullptr,
                                   0,
                                   nullptr,
                                   1,
                                   gHiddenAttribute};

uint32_t FixFlags(uint32_t flags) {
    if (gHostVersion < 2020.02 && (flags & kREALFlagNewStyleMask) == kREALFlagNewStyle) {
        flags = (flags & ~kREALFlagNewStyle) | kREALFlagGlobal;
    }
    if (flags & kREALFlagPluginMarker) {
        flags &= ~kREALFlagPluginMarker;
        if (gHostVersion >= 2010.029) flags |= kREALFlagGlobal;
    }
    return flags;
}

void FixFlags(REALmethodDefinition* method) {
    if (method != nullptr) method->mFlags = FixFlags(method->mFlags);
}

void FixFlags(REALmethodDefinition* methods, int64_t count, const char* /*className*/) {
    if (methods == nullptr || count <= 0) return;
    for (int64_t i = 0; i < count; ++i) FixFlags(&methods[i]);
}

void FixFlags(REALproperty* properties, int64_t count) {
    if (properties == nullptr || count <= 0) return;
    for (int64_t i = 0; i < count; ++i) properties[i].flags = FixFlags(properties[i].flags);
}

void FixFlags(REALclassDefinition* cls) {
    if (cls == nullptr) return;
    cls->mFlags = FixFlags(cls->mFlags);
    FixFlags(cls->methods, int64_t(cls->methodCount));
    FixFlags(cls->sharedMethods, int64_t(cls->sharedMethodCount));
    FixFlags(cls->properties, int64_t(cls->propertyCount));
    FixFlags(cls->sharedProperties, int64_t(cls->sharedPropertyCount));
}

void FixFlags(REALmoduleDefinition* module) {
    if (module == nullptr) return;
    FixFlags(module->methods, int64_t(module->methodCount));
    FixFlags(module->properties, int64_t(module->propertyCount));
}

namespace {

template <typename Record>
void markUnscoped(Record* records, int64_t count, uint32_t Record::*flags, const char* nilError) {
    if (records == nullptr) {
        if (count != 0) logRegistration(nilError);
        return;
    }
    for (int64_t i = 0; i < count; ++i) {
        if ((records[i].*flags & kREALFlagScopeMask) == 0) records[i].*flags |= kREALFlagProtected;
    }
}

}  // namespace

void MarkProtected(REALmethodDefinition* methods, int64_t count) {
    markUnscoped(methods, count, &REALmethodDefinition::mFlags,
                 "Error: method array is nil while count is not zero!");
}

void MarkProtected(REALproperty* properties, int64_t count) {
    markUnscoped(properties, count, &REALproperty::flags,
                 "Error: property array is nil while count is not zero!");
}

void MarkProtected(void* enums, int64_t count) {
    if (enums == nullptr && count != 0) {
        logRegistration("Error: enum array is nil while count is not zero!");
    }
}

void MarkProtected(REALmoduleDefinition* module) {
    if (module == nullptr) return;
    MarkProtected(module->methods, int64_t(module->methodCount));
    MarkProtected(module->properties, int64_t(module->propertyCount));
    MarkProtected(module->enums, int64_t(module->enumCount));
}

void MyREALRegisterMethod(REALmethodDefinition* method) {
    REALRegisterMethod(method);
}

void MyREALRegisterModule(REALmoduleDefinition* module) {
    MarkProtected(module);
    FixFlags(module);
    if (module->flags == 0) module->flags = kREALFlagGlobal;
    module->version = gPluginInterfaceVersion;
    REALRegisterModule(module);
}

namespace {

bool usesGeneratedModules() {
    return gHostVersion >= 2013.0 && gHostVersion < 3000.0;
}

// The generated modules, kept for the life of the process.
REALmoduleDefinition* gGeneratedModules[2] = {nullptr, nullptr};

// A zeroed module with its name; the host keeps pointers into it, so it is never freed.
REALmoduleDefinition* newModule(const char* name) {
    auto* module = static_cast<REALmoduleDefinition*>(calloc(1, sizeof(REALmoduleDefinition)));
    if (module == nullptr) {
        logRegistration("Warning: Failed to allocate memory for module definition.");
        return nullptr;
    }
    module->name = strdup(name);
    for (auto& slot : gGeneratedModules) {
        if (slot == nullptr) {
            slot = module;
            break;
        }
    }
    return module;
}

void finishModule(REALmoduleDefinition* module, REALmethodDefinition* methods, size_t count) {
    module->version = gPluginInterfaceVersion;
    module->methods = methods;
    module->methodCount = count;
    module->properties = &gDebuggingProperty;
    module->propertyCount = 1;
    module->flags = kREALFlagGlobal;
    MyREALRegisterModule(module);
}

}  // namespace

void MyREALRegisterMethodArray(REALmethodDefinition* methods, int64_t count) {
    FixFlags(methods, count);
    if (!usesGeneratedModules()) {
        for (int64_t i = 0; i < count; ++i) MyREALRegisterMethod(&methods[i]);
        return;
    }
    char name[100];
    snprintf(name, sizeof(name), "%s%s", gPartName, "GlobalsKXT");
    REALmoduleDefinition* module = newModule(name);
    if (module == nullptr) return;
    auto* copies = static_cast<REALmethodDefinition*>(
        calloc(count > 0 ? size_t(count) : 1, sizeof(REALmethodDefinition)));
    if (copies == nullptr) {
        logRegistration("Warning: Failed to allocate memory for method definitions.");
        return;
    }
    for (int64_t i = 0; i < count; ++i) {
        copies[i].function = methods[i].function;
        copies[i].setterFunction = methods[i].setterFunction;
        copies[i].declaration = methods[i].declaration;
        copies[i].mFlags = methods[i].mFlags | kREALFlagInModule;
        copies[i].attributeCount = methods[i].attributeCount;
        copies[i].attributes = methods[i].attributes;
    }
    finishModule(module, copies, size_t(count));
}

void MyREALRegisterClassExtension(REALclassDefinition* cls) {
    FixFlags(cls);
    if (!usesGeneratedModules()) {
        cls->version = gPluginInterfaceVersion;
        REALRegisterClassExtension(cls);
        return;
    }
    BuildXojoModule(cls);
}

void BuildXojoModule(REALclassDefinition* cls) {
    if (cls->methods == nullptr || cls->methodCount == 0) return;
    char name[100];
    snprintf(name, sizeof(name), "%s%s%s", cls->name, gPartName, "ExtensionKXT");
    REALmoduleDefinition* module = newModule(name);
    if (module == nullptr) return;

    size_t count = 0;
    for (size_t i = 0; i < cls->methodCount; ++i) {
        if (cls->methods[i].setterFunction) ++count;
        if (cls->methods[i].function) ++count;
    }
    auto* records =
        static_cast<REALmethodDefinition*>(calloc(count ? count : 1, sizeof(REALmethodDefinition)));
    if (records == nullptr) {
        logRegistration("Warning: Failed to allocate memory for method definitions.");
        return;
    }
    size_t n = 0;
    // One global extension method per accessor; a declaration that cannot be built stops all.
    auto add = [&](REALproc function, char* declaration, const REALmethodDefinition& m) {
        REALmethodDefinition& r = records[n++];
        r.function = function;
        r.declaration = declaration;
        r.mFlags = m.mFlags | kREALFlagInModule;
        r.attributeCount = m.attributeCount;
        r.attributes = m.attributes;
        return declaration != nullptr;
    };
    for (size_t i = 0; i < cls->methodCount; ++i) {
        const REALmethodDefinition& m = cls->methods[i];
        bool built = true;
        if (m.setterFunction) {
            built = add(m.setterFunction, AddClassParameterAssign(m.declaration, cls->name), m);
        }
        if (built && m.function) {
            built = add(m.function, AddClassParameter(m.declaration, cls->name), m);
        }
        if (!built) {
            free(records);
            return;
        }
    }
    finishModule(module, records, n);
}

char* AddClassParameter(const char* declaration, const char* className) {
    if (declaration == nullptr || className == nullptr) return nullptr;
    constexpr size_t kSize = 1000;
    char buffer[kSize] = {0};
    size_t i = 0;
    for (; declaration[i] != '\0' && i < kSize - 1; ++i) {
        char c = declaration[i];
        if (c == '(') {
            snprintf(buffer + i, kSize - i, "(extends ref as %s, %s", className,
                     declaration + i + 1);
            return strdup(buffer);
        }
        if (c == ' ') {
            snprintf(buffer + i, kSize - i, "(extends ref as %s)%s", className, declaration + i);
            return strdup(buffer);
        }
        buffer[i] = c;
    }
    snprintf(buffer, kSize, "%s(extends ref as %s)", declaration, className);
    return strdup(buffer);
}

char* AddClassParameterAssign(const char* declaration, const char* className) {
    char* withClass = AddClassParameter(declaration, className);
    if (withClass == nullptr) return nullptr;
    constexpr size_t kSize = 1000;
    char buffer[kSize] = {0};
    const char* close = strchr(withClass, ')');
    if (close != nullptr) {
        size_t at = size_t(close - withClass);
        memcpy(buffer, withClass, at);
        snprintf(buffer + at, kSize - at, ", assigns value%s)", close + 1);
    } else if (const char* blank = strchr(withClass, ' ')) {
        size_t at = size_t(blank - withClass);
        memcpy(buffer, withClass, at);
        snprintf(buffer + at, kSize - at, "(assigns value%s)", blank);
    } else {
        if (gDebugging) LogMessage("Error: Keine Klammer in der Deklaration", declaration);
        free(withClass);
        return nullptr;
    }
    free(withClass);
    return strdup(buffer);
}
