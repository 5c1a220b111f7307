#pragma once

#include <span>

#include "XojoPluginABI.h"

// The global methods in registration order (for tests and the fuzzers).
std::span<const REALmethodDefinition> StringMethodTable();

// Seeds the C random generator as a built application does at start.
void InitRand();
