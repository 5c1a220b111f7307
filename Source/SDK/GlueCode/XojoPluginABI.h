// The binary boundary between a Xojo host and a plugin on 64-bit Linux (SDK record version 15).
// Both the plugin and the emulated host include this header; nothing here may change layout.
#pragma once

#include <cstddef>
#include <cstdint>

typedef int64_t RBInteger;
// One byte at the boundary: the host writes 0 or 1, but any non-zero byte reads as true. Never
// read it through a C++ bool lvalue.
typedef int8_t RBBoolean;
typedef uint32_t RBColor;

struct REALstringStruct;
struct REALobjectStruct;
struct REALmemoryBlockStruct;
struct REALarrayStruct;
typedef REALstringStruct* REALstring;
typedef REALobjectStruct* REALobject;
typedef REALmemoryBlockStruct* REALmemoryBlock;
typedef REALarrayStruct* REALarray;
typedef void (*REALproc)(void);

// Host text encodings the plugin names.
enum : uint32_t {
    kREALTextEncodingMacRoman = 0,
    kREALTextEncodingUTF16 = 0x100,
    kREALTextEncodingISOLatin1 = 0x201,
    kREALTextEncodingWindowsLatin1 = 0x500,
    kREALTextEncodingASCII = 0x600,
    kREALTextEncodingUnknown = 0xFFFF,
    kREALTextEncodingUTF8 = 0x8000100,
    kREALTextEncodingUTF32 = 0xC000100,
    // The rest of the UTF-16/UTF-32 family: explicit byte orders.
    kREALTextEncodingUTF16BE = 0x10000100,
    kREALTextEncodingUTF16LE = 0x14000100,
    kREALTextEncodingUTF32BE = 0x18000100,
    kREALTextEncodingUTF32LE = 0x1C000100,
};

// Inline bytes of a host string start this many bytes after the handle.
constexpr size_t kREALStringDataOffset = 42;

struct REALattribute {
    const char* mName;
    const char* mValue;
};

struct REALmethodDefinition {
    REALproc function;
    REALproc setterFunction;
    const char* declaration;
    uint32_t mFlags;
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALproperty {
    const char* group;
    const char* name;
    const char* type;
    uint32_t flags;
    REALproc getter;
    REALproc setter;
    int32_t param;
    REALproc editor;
    size_t enumCount;
    const char** enumEntries;
    size_t attributeCount;
    REALattribute* attributes;
};

struct REALclassDefinition {
    uint32_t version;
    const char* name;
    const char* superName;
    size_t dataSize;
    RBInteger forSystemUse;
    REALproc constructor;
    REALproc destructor;
    REALproperty* properties;
    size_t propertyCount;
    REALmethodDefinition* methods;
    size_t methodCount;
    void* events;
    size_t eventCount;
    void* eventInstances;
    size_t eventInstanceCount;
    const char* interfaces;
    REALattribute* attributes;
    size_t attributeCount;
    void* constants;
    size_t constantCount;
    uint32_t mFlags;
    REALproperty* sharedProperties;
    size_t sharedPropertyCount;
    REALmethodDefinition* sharedMethods;
    size_t sharedMethodCount;
    void* delegates;
    size_t delegateCount;
    void* enums;
    size_t enumCount;
};

struct REALmoduleDefinition {
    uint32_t version;
    const char* name;
    REALmethodDefinition* methods;
    size_t methodCount;
    void* constants;
    size_t constantCount;
    REALproperty* properties;
    size_t propertyCount;
    void* structures;
    size_t structureCount;
    void* enums;
    size_t enumCount;
    REALattribute* attributes;
    size_t attributeCount;
    void* delegates;
    size_t delegateCount;
    void* classes;
    size_t classesCount;
    void* interfaces;
    size_t interfaceCount;
    void* modules;
    size_t moduleCount;
    void* controls;
    size_t controlCount;
    uint32_t flags;
    void* mobileControls;
    size_t mobileControlCount;
};

struct REALstringData {
    const void* data;
    size_t length;
    uint32_t encoding;
    const void* private1;
    uint32_t private2;
};

typedef void* (*REALResolver)(const char* entryName);

// Element type of a string array for "RuntimeArrayCreateSingleDimBoundedArray".
constexpr int32_t kREALArrayTypeString = 3;

// What "PluginStringArrayInsertProc" hands out for a string array: inserting is calling it.
typedef void (*REALStringArrayInsertFunction)(REALarray array, RBInteger index, REALstring value);
