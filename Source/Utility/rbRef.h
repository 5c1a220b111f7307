// One host reference with one owner: released when the holder goes (early returns and
// exceptions included), handed over as a result with release(). Move only; an empty holder
// makes no host call.
#pragma once

#include <utility>

#include "REALplugin.h"

template <typename Handle, void (*Unlock)(Handle)>
class HostRef {
  public:
    HostRef() = default;
    // Adopts a reference the caller owns (a new handle from the host, or one it locked).
    explicit HostRef(Handle h) noexcept : h_(h) {}
    HostRef(HostRef&& other) noexcept : h_(other.release()) {}
    HostRef& operator=(HostRef&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    HostRef(const HostRef&) = delete;
    HostRef& operator=(const HostRef&) = delete;
    ~HostRef() { reset(); }

    Handle get() const noexcept { return h_; }
    explicit operator bool() const noexcept { return h_ != nullptr; }
    // The reference goes to the caller; the holder is empty.
    Handle release() noexcept { return std::exchange(h_, nullptr); }
    // Releases what is held and adopts h.
    void reset(Handle h = nullptr) noexcept {
        if (h_ != nullptr) Unlock(h_);
        h_ = h;
    }

  private:
    Handle h_ = nullptr;
};

using HostString = HostRef<REALstring, &REALUnlockString>;
using HostObject = HostRef<REALobject, &REALUnlockObject>;
