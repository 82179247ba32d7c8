#include "support/fault_gate.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>

#include <pthread.h>
#include <unistd.h>

// The linker sends calls of f to __wrap_f, and calls of __real_f to f.
extern "C" {
void* __real_malloc(size_t size);
void __real_free(void* p);
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __real_pthread_mutex_destroy(pthread_mutex_t*);
int __real_pthread_cond_init(pthread_cond_t*, const pthread_condattr_t*);
int __real_pthread_cond_destroy(pthread_cond_t*);
long __real_sysconf(int name);
}

namespace zpr_test {

namespace {

std::atomic<long> g_failing{0};
std::atomic<long> g_passed{0};
std::atomic<size_t> g_limit{std::numeric_limits<size_t>::max()};
std::atomic<long> g_refused{0};
std::atomic<long> g_processors{kRealProcessors};
std::atomic<long> g_held[kHeldCount];

bool passes() { return ++g_passed != g_failing; }

void* take(size_t size) {
    if (size > g_limit) {
        ++g_refused;
        return nullptr;
    }
    void* p = passes() ? __real_malloc(size) : nullptr;
    if (p != nullptr) ++g_held[kBlocks];
    return p;
}

void giveBack(void* p) {
    if (p != nullptr) --g_held[kBlocks];
    __real_free(p);
}

/// Calls a function that makes something, and counts it, unless it is its turn to fail.
template <class... Parameters, class... Arguments>
int make(Held kind, int (*function)(Parameters...), Arguments... arguments) {
    const int code = passes() ? function(arguments...) : EAGAIN;
    if (code == 0) ++g_held[kind];
    return code;
}

}  // namespace

void failPoint(long number) {
    g_passed = 0;
    g_failing = number;
}

long pointsPassed() { return g_passed; }
void limitRequests(size_t bytes) { g_limit = bytes; }
long requestsRefused() { return g_refused; }
void pretendProcessors(long count) { g_processors = count; }
Holdings holdings() { return {g_held[0], g_held[1], g_held[2], g_held[3]}; }

}  // namespace zpr_test

using namespace zpr_test;

void* operator new(size_t size) {
    void* p = take(size > 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return take(size); }
void operator delete(void* p) noexcept { giveBack(p); }
void operator delete(void* p, size_t) noexcept { giveBack(p); }
void operator delete[](void* p) noexcept { giveBack(p); }
void operator delete[](void* p, size_t) noexcept { giveBack(p); }

extern "C" {

void* __wrap_malloc(size_t size) { return take(size); }
void __wrap_free(void* p) { giveBack(p); }

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    return make(kThreads, __real_pthread_create, thread, attributes, start, argument);
}
int __wrap_pthread_join(pthread_t thread, void** result) {
    --g_held[kThreads];
    return __real_pthread_join(thread, result);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return make(kMutexes, __real_pthread_mutex_init, mutex, attributes);
}
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    --g_held[kMutexes];
    return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    return make(kConditions, __real_pthread_cond_init, condition, attributes);
}
int __wrap_pthread_cond_destroy(pthread_cond_t* condition) {
    --g_held[kConditions];
    return __real_pthread_cond_destroy(condition);
}

long __wrap_sysconf(int name) {
    const bool isCount = name == _SC_NPROCESSORS_ONLN || name == _SC_NPROCESSORS_CONF;
    return isCount && g_processors != kRealProcessors ? g_processors.load() : __real_sysconf(name);
}

}  // extern "C"
