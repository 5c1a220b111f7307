// Host string arrays.
#pragma once

#include "XojoPluginABI.h"

REALarray REALCreateArrayString(RBInteger upperBound);
void REALInsertArrayValue(REALarray array, RBInteger index, REALstring value);
void REALAppendArrayValue(REALarray array, REALstring value);  // no-op on a nil array
RBInteger REALGetArrayUpperBound(REALarray array);             // -1 for a nil array
