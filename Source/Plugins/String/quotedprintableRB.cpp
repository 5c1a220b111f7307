#include "quotedprintableRB.h"

#include "encoderboundary.h"
#include "quotedprintable.h"
#include "rbData.h"
#include "rbUtil.h"

REALstring EncodingToQuotedPrintable2(REALstring s, RBInteger LineLen) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        return REALBuildUnicodeString(kxt::encodeQuotedPrintable(in.view(), LineLen).view(),
                                      kREALTextEncodingASCII);
    });
}

// The decoded bytes are labelled ASCII whatever they hold; callers define the real encoding.
REALstring DecodingToQuotedPrintable(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        return REALBuildUnicodeString(kxt::decodeQuotedPrintable(in.view()),
                                      kREALTextEncodingASCII);
    });
}
