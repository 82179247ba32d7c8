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
std::atomic<long> g_blocks{0};
std::atomic<long> g_threads{0};
std::atomic<long> g_mutexes{0};
std::atomic<long> g_conditions{0};

bool passes() { return ++g_passed != g_failing; }

void* take(size_t size) {
    if (size > g_limit) {
        ++g_refused;
        return nullptr;
    }
    void* p = passes() ? __real_malloc(size) : nullptr;
    if (p != nullptr) ++g_blocks;
    return p;
}

void giveBack(void* p) {
    if (p != nullptr) --g_blocks;
    __real_free(p);
}

/// Runs a function that makes something, counting it in `made`, unless it is its turn to fail.
template <class Make>
int makeCounted(std::atomic<long>& made, Make make) {
    const int code = passes() ? make() : EAGAIN;
    if (code == 0) ++made;
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
Holdings holdings() { return {g_blocks, g_threads, g_mutexes, g_conditions}; }

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
    return makeCounted(g_threads,
                       [&] { return __real_pthread_create(thread, attributes, start, argument); });
}
int __wrap_pthread_join(pthread_t thread, void** result) {
    --g_threads;
    return __real_pthread_join(thread, result);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return makeCounted(g_mutexes, [&] { return __real_pthread_mutex_init(mutex, attributes); });
}
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    --g_mutexes;
    return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    return makeCounted(g_conditions,
                       [&] { return __real_pthread_cond_init(condition, attributes); });
}
int __wrap_pthread_cond_destroy(pthread_cond_t* condition) {
    --g_conditions;
    return __real_pthread_cond_destroy(condition);
}

long __wrap_sysconf(int name) {
    const bool isCount = name == _SC_NPROCESSORS_ONLN || name == _SC_NPROCESSORS_CONF;
    return isCount && g_processors != kRealProcessors ? g_processors.load() : __real_sysconf(name);
}

}  // extern "C"
