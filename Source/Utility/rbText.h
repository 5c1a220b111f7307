// Text of one host string as ASCII, UTF-8, UTF-16 or UTF-32 (host order), each form made on
// first request, zero-terminated, with its length in code units. Never raises: failures give
// empty forms.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "XojoPluginABI.h"

class rbText {
  public:
    enum Kind : int { kUndecided = 0, kPureASCII = 1, kEightBit = 2, kUnicode = 3 };

    rbText() { reset(); }
    explicit rbText(REALstring s);
    ~rbText();
    rbText(const rbText&) = delete;
    rbText& operator=(const rbText&) = delete;

    void SetText(REALstring s);
    void Clear();

    const char* GetASCII();
    int64_t LengthASCII();
    const char* GetUTF8();
    const char* GetUTF8Nil();  // none when empty
    int64_t LengthUTF8();
    const uint16_t* GetUTF16();
    int64_t LengthUTF16();
    const uint32_t* GetUTF32();
    int64_t LengthUTF32();

    // Views over the forms, for plain functions.
    std::string_view ascii() { return {GetASCII(), size_t(LengthASCII())}; }
    std::string_view utf8() { return {GetUTF8(), size_t(LengthUTF8())}; }
    std::span<const uint16_t> utf16() { return {GetUTF16(), size_t(LengthUTF16())}; }
    std::span<const uint32_t> utf32() { return {GetUTF32(), size_t(LengthUTF32())}; }

    REALstring string() const { return string_; }
    uint32_t encoding() const { return encoding_; }
    Kind kind() {
        decideKind();
        return kind_;
    }
    bool failed() const { return failed_; }

  private:
    void reset();
    void release() noexcept;
    void checkASCII();
    // UTF-8 and ASCII strings are read as they are: whether they are pure ASCII (a pass over
    // the bytes) is found out only when a form or the kind needs it.
    void decideKind() {
        if (asciiPending_) {
            asciiPending_ = false;
            checkASCII();
        }
    }
    // Copies the string converted by the host into an owned, zero-terminated buffer.
    bool fromHost(uint32_t encoding, int unitSize, void*& owned, int64_t& units);
    void makeNarrow(bool utf8);
    void makeUTF16();
    void makeUTF32();
    bool decodesOwnUTF8() const;
    void decodeUTF8(bool toUTF32);
    template <typename Unit>
    void repairWide(const Unit*& ptr, int64_t& length, void*& owned);

    uint32_t startGuard_;
    REALstring string_;
    uint32_t encoding_;
    Kind kind_;
    bool failed_;
    bool asciiPending_;
    const char* ascii_;
    const char* utf8_;
    const uint16_t* utf16_;
    const uint32_t* utf32_;
    int64_t asciiLength_, utf8Length_, utf16Length_, utf32Length_;
    void* ownedASCII_;
    void* ownedUTF8_;
    void* ownedUTF16_;
    void* ownedUTF32_;
    uint32_t endGuard_;
};
