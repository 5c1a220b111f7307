#include "rbArray.h"

#include "REALplugin.h"

REALarray REALCreateArrayString(RBInteger upperBound) {
    return REALCreateArray(kREALArrayTypeString, upperBound);
}

void REALInsertArrayValue(REALarray array, RBInteger index, REALstring value) {
    REALInsertArrayValueString(array, index, value);
}

RBInteger REALGetArrayUpperBound(REALarray array) {
    return array ? REALGetArrayUBound(array) : -1;
}

void REALAppendArrayValue(REALarray array, REALstring value) {
    if (array == nullptr) return;
    REALInsertArrayValue(array, REALGetArrayUpperBound(array) + 1, value);
}
