// Shared test support: a fixture that loads the plugin into the emulated host and checks, after
// every test, that no host reference leaked.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "XojoHost.h"

namespace xhost {
void PrintTo(const Value& v, std::ostream* os);
}

namespace kxt_test {

using xhost::CallResult;
using xhost::Value;

// The shell command that starts a program of this build: through the emulator (qemu-user)
// when the build is for another processor.
inline std::string programCommand(const std::string& command) {
    const std::string emulator = KXT_EMULATOR;
    return emulator.empty() ? command : emulator + " " + command;
}

inline Value S(std::string_view utf8) {
    return Value::string(utf8, kREALTextEncodingUTF8);
}
inline Value S(std::string_view bytes, uint32_t encoding) {
    return Value::string(bytes, encoding);
}
inline Value Raw(std::string_view bytes) {
    return Value::string(bytes, kREALTextEncodingUnknown);
}
inline Value I(int64_t v) {
    return Value::integer(v);
}
inline Value B(bool v) {
    return Value::boolean(v);
}
inline Value D(double v) {
    return Value::real(v);
}
inline Value Nil() {
    return Value::nil();
}
inline Value MB(std::string_view bytes) {
    return Value::memoryBlock(bytes);
}

// Loads the plugin with the options of options() before each test; after it, asserts that the
// test's values are gone and no string, object or string-data record is left alive.
class HostTest : public ::testing::Test {
  protected:
    virtual xhost::HostOptions options() const { return {}; }

    void SetUp() override { host_ = std::make_unique<xhost::Host>(options()); }

    void TearDown() override {
        EXPECT_EQ(host_->liveStrings(), 0u) << host_->describeLive();
        EXPECT_EQ(host_->liveObjects(), 0u) << host_->describeLive();
        EXPECT_EQ(host_->outstandingStringData(), 0u);
        EXPECT_TRUE(host_->misuses().empty()) << host_->describeLive();
        host_.reset();
    }

    xhost::Host& host() { return *host_; }

    // Calls and expects no exception.
    Value call(std::string_view name, const std::vector<Value>& args) {
        CallResult r = host_->call(name, args);
        EXPECT_FALSE(r.exception.has_value())
            << name << " raised " << r.exception->className << ": " << r.exception->message;
        return r.value;
    }
    // The result's bytes (empty for nil).
    std::string callBytes(std::string_view name, const std::vector<Value>& args) {
        return call(name, args).bytes();
    }

  private:
    std::unique_ptr<xhost::Host> host_;
};

}  // namespace kxt_test
