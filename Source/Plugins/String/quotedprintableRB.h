// Handlers of EncodingToQuotedPrintableKXT and DecodingFromQuotedPrintableKXT.
#pragma once

#include "XojoPluginABI.h"

REALstring EncodingToQuotedPrintable2(REALstring s, RBInteger LineLen);
REALstring DecodingToQuotedPrintable(REALstring s);
