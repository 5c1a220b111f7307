// The debug log: lines "KXT Debug: ..." on standard error, written only while Debugging is on
// (callers test gDebugging before logging).
#pragma once

#include <atomic>
#include <cstdint>

#include "XojoPluginABI.h"

// Switched by the host on any thread while calls run on others.
extern std::atomic<bool> gDebugging;

RBBoolean getDebugging();
void setDebugging(RBBoolean value);

// Formats into a 4096-byte buffer (longer output is cut), writes it with one flushed line.
void LogMessageX(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogMessage(const char* text);
void LogMessage(const char* text, int64_t a, int64_t b);
void LogMessage(const char* text, int64_t n);
void LogMessage(const char* text, int32_t n);
void LogMessage(const char* text, uint32_t n);
void LogMessage(const char* text, uint64_t n);
void LogMessage(const char* text, const void* p);
void LogMessage(const char* text, const char* s);
void LogMessage(const char* text, REALstring s);
