// Linked into the shipped plugin and into kxt (not into the tests) so that they load on any
// glibc from 2.17 on. libstdc++ is linked in statically; what is left are imports of glibc
// symbols newer than 2.17: some come from our own code, some from libstdc++.a and from crt1.o,
// all built against the build machine's glibc. Each such symbol is either defined here or
// wrapped (ld --wrap=NAME sends every reference to __wrap_NAME) to the oldest version of the
// same function. The link options in CMakeLists.txt choose the wraps each target needs; the
// shipping policy check (scripts/elf_policy.py) names any import that slips past.
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

#if defined(__x86_64__)
#define KXT_GLIBC_FLOOR "GLIBC_2.2.5"
#define KXT_STAT_VER 1
#elif defined(__aarch64__)
#define KXT_GLIBC_FLOOR "GLIBC_2.17"
#define KXT_STAT_VER 0
#else
#error "no glibc floor known for this architecture"
#endif

// References to kxt_floor_NAME become references to NAME at the floor version.
#define KXT_AT_FLOOR(name, floorName) __asm__(".symver " #floorName ", " #name "@" KXT_GLIBC_FLOOR)

extern "C" {

// glibc 2.32 tells libstdc++ through this byte that no thread was ever started, so reference
// counts may skip their atomic instructions. Never claiming it keeps them atomic: always right.
__attribute__((visibility("hidden"))) char __libc_single_threaded = 0;

// memcpy got a new version in 2.14 (no longer safe for overlapping blocks); the old one is
// memmove's behaviour under memcpy's name.
KXT_AT_FLOOR(memcpy, kxt_floor_memcpy);
void* kxt_floor_memcpy(void*, const void*, size_t);
__attribute__((visibility("hidden"))) void* __wrap_memcpy(void* to, const void* from, size_t n) {
    return kxt_floor_memcpy(to, from, n);
}

// The rest serve kxt only. glibc 2.34 moved the dl* and pthread functions into libc under a new
// version; the old versions live in libdl.so.2 and libpthread.so.0, which kxt therefore names.
KXT_AT_FLOOR(dlopen, kxt_floor_dlopen);
KXT_AT_FLOOR(dlsym, kxt_floor_dlsym);
KXT_AT_FLOOR(dlclose, kxt_floor_dlclose);
KXT_AT_FLOOR(dlerror, kxt_floor_dlerror);
KXT_AT_FLOOR(pthread_once, kxt_floor_pthread_once);
void* kxt_floor_dlopen(const char*, int);
void* kxt_floor_dlsym(void*, const char*);
int kxt_floor_dlclose(void*);
char* kxt_floor_dlerror(void);
int kxt_floor_pthread_once(int*, void (*)(void));
__attribute__((visibility("hidden"))) void* __wrap_dlopen(const char* file, int mode) {
    return kxt_floor_dlopen(file, mode);
}
__attribute__((visibility("hidden"))) void* __wrap_dlsym(void* handle, const char* name) {
    return kxt_floor_dlsym(handle, name);
}
__attribute__((visibility("hidden"))) int __wrap_dlclose(void* handle) {
    return kxt_floor_dlclose(handle);
}
__attribute__((visibility("hidden"))) char* __wrap_dlerror(void) {
    return kxt_floor_dlerror();
}
__attribute__((visibility("hidden"))) int __wrap_pthread_once(int* once, void (*run)(void)) {
    return kxt_floor_pthread_once(once, run);
}

// The read-write lock (std::shared_mutex in the host) moved into libc in 2.34 as well.
KXT_AT_FLOOR(pthread_rwlock_rdlock, kxt_floor_rwlock_rdlock);
KXT_AT_FLOOR(pthread_rwlock_wrlock, kxt_floor_rwlock_wrlock);
KXT_AT_FLOOR(pthread_rwlock_unlock, kxt_floor_rwlock_unlock);
int kxt_floor_rwlock_rdlock(pthread_rwlock_t*);
int kxt_floor_rwlock_wrlock(pthread_rwlock_t*);
int kxt_floor_rwlock_unlock(pthread_rwlock_t*);
__attribute__((visibility("hidden"))) int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* l) {
    return kxt_floor_rwlock_rdlock(l);
}
__attribute__((visibility("hidden"))) int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* l) {
    return kxt_floor_rwlock_wrlock(l);
}
__attribute__((visibility("hidden"))) int __wrap_pthread_rwlock_unlock(pthread_rwlock_t* l) {
    return kxt_floor_rwlock_unlock(l);
}

// So did the thread-specific keys (the host's per-thread slots, freed at thread exit).
KXT_AT_FLOOR(pthread_key_create, kxt_floor_key_create);
KXT_AT_FLOOR(pthread_setspecific, kxt_floor_setspecific);
int kxt_floor_key_create(pthread_key_t*, void (*)(void*));
int kxt_floor_setspecific(pthread_key_t, const void*);
__attribute__((visibility("hidden"))) int __wrap_pthread_key_create(pthread_key_t* key,
                                                                    void (*destroy)(void*)) {
    return kxt_floor_key_create(key, destroy);
}
__attribute__((visibility("hidden"))) int __wrap_pthread_setspecific(pthread_key_t key,
                                                                     const void* value) {
    return kxt_floor_setspecific(key, value);
}

// fstat64 became a function of its own in 2.33; before, it was __fxstat64 with a layout version.
KXT_AT_FLOOR(__fxstat64, kxt_floor_fxstat64);
int kxt_floor_fxstat64(int, int, struct stat64*);
__attribute__((visibility("hidden"))) int __wrap_fstat64(int fd, struct stat64* st) {
    return kxt_floor_fxstat64(KXT_STAT_VER, fd, st);
}

// libffi (inside kxt) asks for memfd_create (2.27) for its closures; the system call is older
// than the function, and a kernel without it makes libffi take another way.
__attribute__((visibility("hidden"))) int __wrap_memfd_create(const char* name, unsigned flags) {
    return static_cast<int>(syscall(SYS_memfd_create, name, flags));
}

// crt1.o of glibc 2.34 and later calls the new __libc_start_main without the constructor
// runner that older crt1.o passed, because the new one runs the program's constructors itself.
// The old entry point runs only what it is given, so give it that runner.
extern void (*__init_array_start[])(int, char**, char**)
    __attribute__((weak, visibility("hidden")));
extern void (*__init_array_end[])(int, char**, char**) __attribute__((weak, visibility("hidden")));
using KxtMain = int (*)(int, char**, char**);
using KxtInit = void (*)(int, char**, char**);
KXT_AT_FLOOR(__libc_start_main, kxt_floor_libc_start_main);
int kxt_floor_libc_start_main(KxtMain, int, char**, KxtInit, void (*)(void), void (*)(void), void*);
static void kxtRunConstructors(int argc, char** argv, char** env) {
    for (auto f = __init_array_start; f != __init_array_end; ++f) (*f)(argc, argv, env);
}
__attribute__((visibility("hidden"))) int __wrap___libc_start_main(KxtMain main, int argc,
                                                                   char** argv, KxtInit init,
                                                                   void (*fini)(void),
                                                                   void (*rtldFini)(void),
                                                                   void* stackEnd) {
    return kxt_floor_libc_start_main(main, argc, argv, init ? init : kxtRunConstructors, fini,
                                     rtldFini, stackEnd);
}

}  // extern "C"
