// Registration of global methods and class extensions, adapted to the age of the host: hosts
// from 2013.0 up to below 3000.0 receive generated modules, others the records themselves.
#pragma once

#include <cstdint>

#include "XojoPluginABI.h"

void MyREALRegisterMethodArray(REALmethodDefinition* methods, int64_t count);
void MyREALRegisterMethod(REALmethodDefinition* method);
void MyREALRegisterClassExtension(REALclassDefinition* cls);
void MyREALRegisterModule(REALmoduleDefinition* module);
void BuildXojoModule(REALclassDefinition* cls);

uint32_t FixFlags(uint32_t flags);
void FixFlags(REALmethodDefinition* method);
void FixFlags(REALmethodDefinition* methods, int64_t count, const char* className = nullptr);
void FixFlags(REALproperty* properties, int64_t count);
void FixFlags(REALclassDefinition* cls);
void FixFlags(REALmoduleDefinition* module);

void MarkProtected(REALmethodDefinition* methods, int64_t count);
void MarkProtected(REALproperty* properties, int64_t count);
// Enum records are never filled by this plugin; only their flag word would be touched.
void MarkProtected(void* enums, int64_t count);
void MarkProtected(REALmoduleDefinition* module);

// New heap strings (free with free()), or null.
char* AddClassParameter(const char* declaration, const char* className);
char* AddClassParameterAssign(const char* declaration, const char* className);

// The hidden Debugging property every generated module carries.
extern REALproperty gDebuggingProperty;
