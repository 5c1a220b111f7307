#include "rbDebug.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "rbText.h"

std::atomic<bool> gDebugging{false};

namespace {
constexpr const char* kPrefix = "KXT Debug: ";
}  // namespace

RBBoolean getDebugging() {
    return gDebugging;
}
void setDebugging(RBBoolean value) {
    gDebugging = value != 0;
}

void LogMessageX(const char* format, ...) {
    char line[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    // One formatted write per line, so lines from different threads do not interleave.
    fprintf(stderr, "%s\n", line);
    fflush(stderr);
}

void LogMessage(const char* text) {
    LogMessageX("%s%s", kPrefix, text);
}
void LogMessage(const char* text, int64_t a, int64_t b) {
    LogMessageX("%s%s %" PRId64 ", %" PRId64, kPrefix, text, a, b);
}
void LogMessage(const char* text, int64_t n) {
    LogMessageX("%s%s %" PRId64, kPrefix, text, n);
}
void LogMessage(const char* text, int32_t n) {
    LogMessageX("%s%s %d", kPrefix, text, n);
}
void LogMessage(const char* text, uint32_t n) {
    LogMessageX("%s%s %u", kPrefix, text, n);
}
void LogMessage(const char* text, uint64_t n) {
    LogMessageX("%s%s %" PRIu64, kPrefix, text, n);
}
void LogMessage(const char* text, const void* p) {
    LogMessageX("%s%s %p", kPrefix, text, p);
}
void LogMessage(const char* text, const char* s) {
    LogMessageX("%s%s %s", kPrefix, text, s);
}
void LogMessage(const char* text, REALstring s) {
    rbText t(s);
    LogMessageX("%s%s %p: %s", kPrefix, text, static_cast<void*>(s), t.GetUTF8());
}
