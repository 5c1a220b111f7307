// The smallest plugin the emulated host loads: one global method, NoOpKXT, which returns its
// argument (with the reference a returned argument needs). The small-input benchmark calls it
// beside every method of the real plugin to show what a call itself costs.
#include "XojoHostServices.h"
#include "XojoPluginABI.h"

namespace {

using kxt::abi::HostService;
using kxt::abi::HostServiceFunction;
using kxt::abi::HostServiceInfo;

HostServiceFunction<HostService::REALLockString> gLockString = nullptr;

REALstring NoOp(REALstring s) {
    if (s != nullptr) gLockString(s);
    return s;
}

REALmethodDefinition gNoOp = {
    reinterpret_cast<REALproc>(NoOp), nullptr, "NoOpKXT(s as string) as string", 0, 0, nullptr};

template <HostService S>
HostServiceFunction<S> resolve(REALResolver resolver) {
    return reinterpret_cast<HostServiceFunction<S>>(resolver(HostServiceInfo<S>::name));
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver resolver) {
    if (resolver == nullptr) return;
    resolve<HostService::RegisterPluginVersion>(resolver)(13);
    gLockString = resolve<HostService::REALLockString>(resolver);
    resolve<HostService::PluginRegisterMethod>(resolver)(&gNoOp);
}
