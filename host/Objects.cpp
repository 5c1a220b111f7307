// Host objects: a small class model (class name, reference count, typed properties, methods
// found by declaration), MemoryBlocks, string arrays, exceptions and the styled-text classes.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "Encodings.h"
#include "HostInternal.h"
#include "HostServices.h"
#include "XojoHostServices.h"

namespace xhost {

namespace {

struct PropDef {
    const char* name;
    PropType type;
};

struct ClassDef {
    const char* name;
    ObjectKind kind;
    std::vector<PropDef> props;
};

const std::vector<ClassDef>& classes() {
    static const std::vector<ClassDef> defs = {
        {"MemoryBlock", ObjectKind::MemoryBlock, {}},
        {"RuntimeException",
         ObjectKind::Plain,
         {{"Message", PropType::String}, {"ErrorNumber", PropType::Integer}}},
        {"OutOfMemoryException",
         ObjectKind::Plain,
         {{"Message", PropType::String}, {"ErrorNumber", PropType::Integer}}},
        {"OutOfBoundsException",
         ObjectKind::Plain,
         {{"Message", PropType::String}, {"ErrorNumber", PropType::Integer}}},
        {"StyledText", ObjectKind::StyledText, {}},
        {"StyleRun",
         ObjectKind::Plain,
         {{"Text", PropType::String},
          {"Font", PropType::String},
          {"Size", PropType::Integer},
          {"Bold", PropType::Boolean},
          {"Italic", PropType::Boolean},
          {"Underline", PropType::Boolean},
          {"TextColor", PropType::Color}}},
        {"Paragraph",
         ObjectKind::Plain,
         {{"StartPos", PropType::Integer},
          {"EndPos", PropType::Integer},
          {"Alignment", PropType::Integer}}},
    };
    return defs;
}

Object* registerObject(Host::State& st, Object* o) {
    o->serial = st.nextSerial.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(st.objectsLock);
    try {
        st.objects.insert(o);
    } catch (...) {
        delete o;  // a failed service leaves nothing behind
        throw;
    }
    return o;
}

bool isClass(const Object* o, std::string_view name) {
    return o != nullptr && equalsIgnoringCase(o->className, name);
}

// Objects of the services: the handle must be live; a nil handle is not a misuse.
Object* serviceObject(const void* handle) {
    Host::State* st = currentState();
    if (st == nullptr || handle == nullptr) return nullptr;
    return liveObject(*st, handle);
}

// ---- Styled text ------------------------------------------------------------------------------

void invalidateParagraphs(Object* styledText) {
    styledText->paragraphsValid = false;
    styledText->paragraphEnds.clear();
}

// Extends the paragraph structure by one character. Line ends are CR, LF or CR LF (one line
// end, also when the pair spans two runs); positions count code points.
void extendParagraphs(Object* t, char32_t c) {
    int64_t pos = t->characters++;
    if (c == '\n' && t->lastWasCR) {
        t->paragraphEnds.back().second = pos;
        t->lastWasCR = false;
        return;
    }
    if (c == '\r' || c == '\n') {
        t->paragraphEnds.emplace_back(t->openStart >= 0 ? t->openStart : pos, pos);
        t->openStart = -1;
    } else if (t->openStart < 0) {
        t->openStart = pos;
    }
    t->lastWasCR = c == '\r';
}

// Extends it by a run's text, counted as its UTF-8 form counts characters: the code points
// when the text decodes in its encoding; otherwise, and for UTF-8 and bytes without an
// encoding (taken as they are), every byte that does not continue a UTF-8 sequence. Read in
// place: no UTF-8 copy of each run.
void extendParagraphs(Host::State& st, Object* t, REALstring text) {
    const StringHeader* h = text != nullptr ? liveString(st, text) : nullptr;
    if (h == nullptr) return;
    const std::string_view bytes = stringBytes(text);
    if (h->encoding != kREALTextEncodingUTF8 && h->encoding != kREALTextEncodingUnknown) {
        if (const auto points = encodings::decode(bytes, h->encoding)) {
            for (char32_t c : *points) extendParagraphs(t, c);
            return;
        }
    }
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if ((c & 0xC0) != 0x80) extendParagraphs(t, c);
    }
}

void ensureParagraphs(Host::State& st, Object* t) {
    if (t->paragraphsValid) return;
    t->paragraphEnds.clear();
    t->characters = 0;
    t->openStart = -1;
    t->lastWasCR = false;
    for (Object* run : t->runs) {
        if (PropValue* text = findProp(run, "Text")) extendParagraphs(st, t, text->string);
    }
    t->paragraphsValid = true;
}

std::pair<int64_t, int64_t> paragraphRange(Object* t, int64_t index) {
    if (index < static_cast<int64_t>(t->paragraphEnds.size())) {
        return t->paragraphEnds[size_t(index)];
    }
    return {t->openStart, t->characters - 1};
}

void removeOwner(Object* run, Object* owner) {
    auto it = std::find(run->owners.begin(), run->owners.end(), owner);
    if (it != run->owners.end()) run->owners.erase(it);
}

void outOfBounds(Host::State& st, const char* method, int64_t index) {
    char buf[120];
    std::snprintf(buf, sizeof buf, "%s: index %lld is out of bounds", method,
                  static_cast<long long>(index));
    raise(st, "OutOfBoundsException", buf);
}

// Object methods, called by the plugin with the object first.
REALobject styledTextStyleRun(REALobject self, RBInteger index) {
    Host::State* st = currentState();
    Object* t = serviceObject(self);
    if (st == nullptr || !isClass(t, "StyledText")) return nullptr;
    if (index < 0 || index >= static_cast<int64_t>(t->runs.size())) {
        outOfBounds(*st, "StyleRun", index);
        return nullptr;
    }
    return reinterpret_cast<REALobject>(
        t->runs[size_t(index)]);  // borrowed: the styled text owns it
}

REALobject styledTextParagraph(REALobject self, RBInteger index) {
    Host::State* st = currentState();
    Object* t = serviceObject(self);
    if (st == nullptr || !isClass(t, "StyledText")) return nullptr;
    if (index < 0 || index >= paragraphCount(*st, t)) {
        outOfBounds(*st, "Paragraph", index);
        return nullptr;
    }
    auto [start, end] = paragraphRange(t, index);
    Object* p = newObject(*st, "Paragraph");
    findProp(p, "StartPos")->integer = start;
    findProp(p, "EndPos")->integer = end;
    findProp(p, "Alignment")->integer = alignmentOf(t, index);
    return reinterpret_cast<REALobject>(p);
}

void styledTextRemoveStyleRun(REALobject self, RBInteger index) {
    Host::State* st = currentState();
    Object* t = serviceObject(self);
    if (st == nullptr || !isClass(t, "StyledText")) return;
    if (index < 0 || index >= static_cast<int64_t>(t->runs.size())) {
        outOfBounds(*st, "RemoveStyleRun", index);
        return;
    }
    Object* run = t->runs[size_t(index)];
    t->runs.erase(t->runs.begin() + index);
    removeOwner(run, t);
    invalidateParagraphs(t);
    unlockObject(*st, run);
}

void styledTextAppendStyleRun(REALobject self, REALobject runHandle) {
    Host::State* st = currentState();
    Object* t = serviceObject(self);
    Object* run = serviceObject(runHandle);
    if (st == nullptr || !isClass(t, "StyledText") || !isClass(run, "StyleRun")) return;
    lockObject(*st, run);
    t->runs.push_back(run);
    run->owners.push_back(t);
    if (t->paragraphsValid) {
        if (PropValue* text = findProp(run, "Text")) extendParagraphs(*st, t, text->string);
    }
}

void styledTextParagraphAlignment(REALobject self, RBInteger index, RBInteger value) {
    Host::State* st = currentState();
    Object* t = serviceObject(self);
    if (st == nullptr || !isClass(t, "StyledText")) return;
    if (index < 0 || index >= paragraphCount(*st, t)) {
        outOfBounds(*st, "ParagraphAlignment", index);
        return;
    }
    setAlignment(t, index, value);
}

void memoryBlockConstructor(REALobject self, RBInteger bytes) {
    Host::State* st = currentState();
    Object* mb = serviceObject(self);
    Host* host = Host::current();
    if (st == nullptr || mb == nullptr || mb->kind != ObjectKind::MemoryBlock) return;
    if (host->options().failMemoryBlocks || bytes <= 0) return;
    void* data = allocateBlock(static_cast<size_t>(bytes), true);
    if (data == nullptr) return;  // allocation failed: the block stays empty
    freeBlock(mb->data);
    mb->data = static_cast<char*>(data);
    mb->size = bytes;
}

struct MethodDef {
    const char* className;
    const char* declaration;
    void* function;
};

// An object method of the list, with exactly its listed type.
template <kxt::abi::ObjectMethod M>
MethodDef methodDef(kxt::abi::ObjectMethodFunction<M> function) {
    using Info = kxt::abi::ObjectMethodInfo<M>;
    return {Info::className, Info::declaration, reinterpret_cast<void*>(function)};
}

const std::vector<MethodDef>& methods() {
    using kxt::abi::ObjectMethod;
    static const std::vector<MethodDef> defs = {
        methodDef<ObjectMethod::MemoryBlockConstructor>(kNoExcept<&memoryBlockConstructor>),
        methodDef<ObjectMethod::StyledTextStyleRun>(kNoExcept<&styledTextStyleRun>),
        methodDef<ObjectMethod::StyledTextParagraph>(kNoExcept<&styledTextParagraph>),
        methodDef<ObjectMethod::StyledTextRemoveStyleRun>(kNoExcept<&styledTextRemoveStyleRun>),
        methodDef<ObjectMethod::StyledTextAppendStyleRun>(kNoExcept<&styledTextAppendStyleRun>),
        methodDef<ObjectMethod::StyledTextParagraphAlignment>(
            kNoExcept<&styledTextParagraphAlignment>),
    };
    return defs;
}

void releaseContents(Host::State& st, Object* o) {
    for (PropValue& p : o->props) {
        if (p.string != nullptr) unlockString(st, p.string);
        p.string = nullptr;
    }
    for (REALstring s : o->elements) {
        if (s != nullptr) unlockString(st, s);
    }
    o->elements.clear();
    std::vector<Object*> runs;
    runs.swap(o->runs);
    for (Object* run : runs) {
        removeOwner(run, o);
        unlockObject(st, run);
    }
    freeBlock(o->data);
    o->data = nullptr;
    o->size = 0;
}

}  // namespace

int64_t paragraphCount(Host::State& st, Object* t) {
    ensureParagraphs(st, t);
    return static_cast<int64_t>(t->paragraphEnds.size()) + (t->openStart >= 0 ? 1 : 0);
}

int64_t alignmentOf(const Object* t, int64_t index) {
    return index >= 0 && index < static_cast<int64_t>(t->alignments.size())
               ? t->alignments[static_cast<size_t>(index)]
               : 0;
}

void setAlignment(Object* t, int64_t index, int64_t alignment) {
    if (index < 0) return;
    if (index >= static_cast<int64_t>(t->alignments.size())) {
        t->alignments.resize(static_cast<size_t>(index) + 1, 0);
    }
    t->alignments[static_cast<size_t>(index)] = alignment;
}

Object* newObject(Host::State& st, std::string_view className) {
    for (const ClassDef& def : classes()) {
        if (!equalsIgnoringCase(def.name, className)) continue;
        auto* o = new Object;
        o->className = def.name;
        o->kind = def.kind;
        bool fontName = Host::current() && Host::current()->options().styleRunFontName;
        o->props.reserve(def.props.size());
        for (const PropDef& p : def.props) {
            std::string name = p.name;
            if (name == "Font" && fontName) name = "FontName";
            o->props.push_back(PropValue{name, p.type});
        }
        return registerObject(st, o);
    }
    return nullptr;
}

Object* liveObject(Host::State& st, const void* handle) {
    if (handle == nullptr) return nullptr;
    auto* o = static_cast<const Object*>(handle);
    bool live = st.objects.seen(o);
    if (!live) {
        std::lock_guard<std::mutex> lock(st.objectsLock);
        live = st.objects.count(o) != 0;
    }
    if (!live || o->magic != kObjectMagic) {
        char buf[80];
        std::snprintf(buf, sizeof buf, "unknown or released object handle %p", handle);
        misuse(st, buf);
        return nullptr;
    }
    return const_cast<Object*>(o);
}

void lockObject(Host::State&, Object* o) {
    if (o != nullptr) o->refs.fetch_add(1, std::memory_order_relaxed);
}

void unlockObject(Host::State& st, Object* o) {
    if (o == nullptr || o->refs.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
    releaseContents(st, o);
    o->magic = kDeadMagic;
    {
        std::lock_guard<std::mutex> lock(st.objectsLock);
        st.objects.erase(o);
    }
    delete o;
}

PropValue* findProp(Object* o, std::string_view name) {
    if (o == nullptr) return nullptr;
    for (PropValue& p : o->props) {
        if (equalsIgnoringCase(p.name, name)) return &p;
    }
    return nullptr;
}

void* objectMethod(Object* o, std::string_view declaration) {
    if (o == nullptr) return nullptr;
    std::string wanted = normalizeDeclaration(declaration);
    for (const MethodDef& m : methods()) {
        if (isClass(o, m.className) && normalizeDeclaration(m.declaration) == wanted) {
            return m.function;
        }
    }
    return nullptr;
}

void raise(Host::State& st, std::string_view className, std::string_view message) {
    Object* e = newObject(st, className);
    if (e == nullptr) e = newObject(st, "RuntimeException");
    findProp(e, "Message")->string =
        newString(st, message.data(), message.size(), kREALTextEncodingUTF8);
    Object*& pending = pendingException(st);
    if (pending != nullptr) unlockObject(st, pending);
    pending = e;
}

void freeEverything(Host::State& st) {
    for (const Object* o : st.objects) delete o;
    st.objects.clear();
    for (const void* s : st.strings) freeBlock(const_cast<void*>(s));
    st.strings.clear();
    for (const StringDataRecord* r : st.stringData) delete r;
    st.stringData.clear();
    dropPendingException(st);
    releaseKeptBlocks();
}

std::string styledTextUTF8(Host::State& st, Object* t) {
    std::string text, storage;
    for (Object* run : t->runs) {
        PropValue* p = findProp(run, "Text");
        if (p != nullptr && p->string != nullptr) text += utf8Of(st, p->string, storage);
    }
    return text;
}

std::vector<ParagraphSpec> paragraphsOf(Host::State& st, Object* t) {
    std::vector<ParagraphSpec> out;
    int64_t count = paragraphCount(st, t);
    for (int64_t i = 0; i < count; ++i) {
        auto [start, end] = paragraphRange(t, i);
        out.push_back({start, end, alignmentOf(t, i)});
    }
    return out;
}

namespace services {

REALobject newInstance(const char* className) {
    Host::State* st = currentState();
    if (st == nullptr || className == nullptr) return nullptr;
    return reinterpret_cast<REALobject>(newObject(*st, className));
}

void lockObjectService(REALobject o) {
    if (Host::State* st = currentState()) lockObject(*st, liveObject(*st, o));
}

void unlockObjectService(REALobject o) {
    if (Host::State* st = currentState()) unlockObject(*st, liveObject(*st, o));
}

RBBoolean getPropString(REALobject handle, const char* name, REALstring* out) {
    Host::State* st = currentState();
    Object* o = serviceObject(handle);
    if (o == nullptr || name == nullptr || out == nullptr) return false;
    if (o->kind == ObjectKind::StyledText && equalsIgnoringCase(name, "Text")) {
        std::string text = styledTextUTF8(*st, o);
        *out = text.empty() ? nullptr
                            : newString(*st, text.data(), text.size(), kREALTextEncodingUTF8);
        return true;
    }
    PropValue* p = findProp(o, name);
    if (p == nullptr || p->type != PropType::String) return false;
    // Xojo makes no difference between nil and the empty string.
    REALstring value = p->string;
    if (value != nullptr && stringBytes(value).empty()) value = nullptr;
    if (value != nullptr) lockString(*st, value);
    *out = value;
    return true;
}

RBBoolean setPropString(REALobject handle, const char* name, REALstring value) {
    Host::State* st = currentState();
    Object* o = serviceObject(handle);
    if (o == nullptr || name == nullptr) return false;
    if (value != nullptr && liveString(*st, value) == nullptr) return false;
    if (o->kind == ObjectKind::StyledText && equalsIgnoringCase(name, "Text")) {
        // Assigning the text replaces every run by one plain run.
        Object* run = newObject(*st, "StyleRun");
        if (value != nullptr) lockString(*st, value);
        findProp(run, "Text")->string = value;
        while (!o->runs.empty()) {
            Object* old = o->runs.back();
            o->runs.pop_back();
            removeOwner(old, o);
            unlockObject(*st, old);
        }
        o->alignments.clear();
        invalidateParagraphs(o);
        o->runs.push_back(run);
        run->owners.push_back(o);
        return true;
    }
    PropValue* p = findProp(o, name);
    if (p == nullptr || p->type != PropType::String) return false;
    if (value != nullptr) lockString(*st, value);
    if (p->string != nullptr) unlockString(*st, p->string);
    p->string = value;
    if (equalsIgnoringCase(p->name, "Text")) {
        for (Object* owner : o->owners) invalidateParagraphs(owner);
    }
    return true;
}

RBBoolean getPropBool(REALobject handle, const char* name, RBBoolean* out) {
    Object* o = serviceObject(handle);
    PropValue* p = name ? findProp(o, name) : nullptr;
    if (p == nullptr || p->type != PropType::Boolean || out == nullptr) return false;
    *out = p->integer != 0;
    return true;
}

RBBoolean getPropColor(REALobject handle, const char* name, RBColor* out) {
    Object* o = serviceObject(handle);
    PropValue* p = name ? findProp(o, name) : nullptr;
    if (p == nullptr || p->type != PropType::Color || out == nullptr) return false;
    *out = static_cast<RBColor>(p->integer);
    return true;
}

RBBoolean getPropInteger(REALobject handle, const char* name, RBInteger* out) {
    Host::State* st = currentState();
    Object* o = serviceObject(handle);
    if (o == nullptr || name == nullptr || out == nullptr) return false;
    if (o->kind == ObjectKind::StyledText) {
        if (equalsIgnoringCase(name, "StyleRunCount")) {
            *out = static_cast<RBInteger>(o->runs.size());
            return true;
        }
        if (equalsIgnoringCase(name, "ParagraphCount")) {
            *out = paragraphCount(*st, o);
            return true;
        }
        return false;
    }
    if (o->kind == ObjectKind::MemoryBlock && equalsIgnoringCase(name, "Size")) {
        *out = o->size;
        return true;
    }
    PropValue* p = findProp(o, name);
    if (p == nullptr || p->type != PropType::Integer) return false;
    *out = p->integer;
    return true;
}

RBBoolean setPropInteger(REALobject handle, const char* name, RBInteger value) {
    Object* o = serviceObject(handle);
    PropValue* p = name ? findProp(o, name) : nullptr;
    if (p == nullptr || p->type != PropType::Integer) return false;
    p->integer = value;
    return true;
}

RBBoolean setPropUInt32(REALobject handle, const char* name, uint32_t value) {
    Object* o = serviceObject(handle);
    PropValue* p = name ? findProp(o, name) : nullptr;
    if (p == nullptr || (p->type != PropType::Color && p->type != PropType::Integer)) return false;
    p->integer = value;
    return true;
}

RBBoolean setPropBoolean(REALobject handle, const char* name, RBBoolean value) {
    Object* o = serviceObject(handle);
    PropValue* p = name ? findProp(o, name) : nullptr;
    if (p == nullptr || p->type != PropType::Boolean) return false;
    p->integer = value ? 1 : 0;
    return true;
}

REALarray createArray(int32_t elementType, RBInteger upperBound) {
    Host::State* st = currentState();
    if (st == nullptr) return nullptr;
    if (elementType != kREALArrayTypeString || upperBound < -1) {
        misuse(*st, "RuntimeArrayCreateSingleDimBoundedArray with element type " +
                        std::to_string(elementType) + ", upper bound " +
                        std::to_string(upperBound));
        return nullptr;
    }
    auto a = std::make_unique<Object>();
    a->className = "String()";
    a->kind = ObjectKind::Array;
    a->elements.assign(static_cast<size_t>(upperBound + 1), nullptr);
    return reinterpret_cast<REALarray>(registerObject(*st, a.release()));
}

void insertArrayString(REALarray array, RBInteger index, REALstring value) {
    Host::State* st = currentState();
    Object* a = serviceObject(array);
    if (a == nullptr || a->kind != ObjectKind::Array) return;
    if (index < 0 || index > static_cast<int64_t>(a->elements.size())) {
        outOfBounds(*st, "Insert", index);
        return;
    }
    if (value != nullptr && liveString(*st, value) == nullptr) return;
    a->elements.insert(a->elements.begin() + index, value);  // may fail: lock only after it
    if (value != nullptr) lockString(*st, value);
}

void* stringArrayInsertProc(REALarray array) {
    Host::State* st = currentState();
    if (st == nullptr) return nullptr;
    if (array == nullptr) {
        misuse(*st, "PluginStringArrayInsertProc(null)");
        return nullptr;
    }
    Object* a = liveObject(*st, array);  // an unknown handle is a misuse of its own
    if (a == nullptr) return nullptr;
    if (a->kind != ObjectKind::Array) {
        misuse(*st, "PluginStringArrayInsertProc of a " + a->className + ", not a string array");
        return nullptr;
    }
    constexpr REALStringArrayInsertFunction insert = kNoExcept<&insertArrayString>;
    return reinterpret_cast<void*>(insert);
}

RBInteger arrayUBound(REALarray array) {
    Object* a = serviceObject(array);
    if (a == nullptr || a->kind != ObjectKind::Array) return -1;
    return static_cast<RBInteger>(a->elements.size()) - 1;
}

void raiseException(REALobject exception) {
    Host::State* st = currentState();
    Object* e = serviceObject(exception);
    if (e == nullptr) return;
    lockObject(*st, e);
    Object*& pending = pendingException(*st);
    if (pending != nullptr) unlockObject(*st, pending);
    pending = e;
}

REALobject callWithExceptionHandler(void (*f)(void*), void* arg) {
    Host::State* st = currentState();
    if (st == nullptr || f == nullptr) return nullptr;
    Object* outer = std::exchange(pendingException(*st), nullptr);
    f(arg);
    // The raised exception's reference passes to the caller.
    Object* raised = std::exchange(pendingException(*st), outer);
    return reinterpret_cast<REALobject>(raised);
}

void* memoryBlockGetPtr(REALmemoryBlock mb) {
    Object* o = serviceObject(mb);
    return o != nullptr && o->kind == ObjectKind::MemoryBlock ? o->data : nullptr;
}

RBInteger memoryBlockGetSize(REALmemoryBlock mb) {
    Object* o = serviceObject(mb);
    return o != nullptr && o->kind == ObjectKind::MemoryBlock ? o->size : 0;
}

void* loadObjectMethod(REALobject o, const char* declaration) {
    if (declaration == nullptr) return nullptr;
    return objectMethod(serviceObject(o), declaration);
}

}  // namespace services
}  // namespace xhost
