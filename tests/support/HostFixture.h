// Support for the emulated host's own tests: the fixture plugin and direct access to the
// services the resolver hands out.
#pragma once

#include "HostInternal.h"
#include "KxtTest.h"
#include "XojoHostServices.h"

namespace kxt_test {

inline xhost::HostOptions fixtureOptions() {
    xhost::HostOptions o;
#ifdef KXT_HOST_FIXTURE
    o.pluginPath = KXT_HOST_FIXTURE;
#endif
    return o;
}

// HostTest with the fixture plugin instead of the real one.
class FixtureHostTest : public HostTest {
  protected:
    xhost::HostOptions options() const override { return fixtureOptions(); }
};

// A service of the current host, as the plugin would get it from the resolver.
template <typename F>
F service(const char* name) {
    void* p = xhost::resolve(name);
    if (p == nullptr) throw std::runtime_error(std::string("the resolver does not know ") + name);
    return reinterpret_cast<F>(p);
}
using kxt::abi::HostService;
// A service by the list, typed as the list gives it.
template <HostService S>
kxt::abi::HostServiceFunction<S> service() {
    return service<kxt::abi::HostServiceFunction<S>>(kxt::abi::HostServiceInfo<S>::name);
}

}  // namespace kxt_test
