#include "runtime/worker_pool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <limits>
#include <new>

#include <unistd.h>

namespace qlx::zpr_framehold {

namespace {

class Lock {
public:
    explicit Lock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Lock() { pthread_mutex_unlock(&mutex_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

/// A failing sysconf (-1) counts as the most processors there can be.
uint32_t asCount(long cpus) {
    const auto count = static_cast<unsigned long>(cpus);
    return static_cast<uint32_t>(std::min<unsigned long>(count, WorkerPool::kMaxThreads));
}

/// Keeps signals from this thread, and from those that it starts, while it exists: the host's
/// handlers are to run on threads of the host. Deliberate: not the signals of faults, which are
/// raised on the thread that has one and would end the process without its crash handler.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&blocked, fault);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

/// Starts a thread with a stack of kStackSize, or a few times that if the platform's smallest is
/// larger; with one of the platform's usual size where the thread's own data, which lie in the stack
/// too, leave no room in that.
int startWithSmallStack(pthread_t& thread, void* (*main)(void*), void* argument) {
    pthread_attr_t attributes;
    int code = pthread_attr_init(&attributes);
    if (code != 0) return code;
    // Platforms have a smallest stack: at most 128 KB where it is known.
    size_t size = WorkerPool::kStackSize;
    for (int i = 0; i < 4 && pthread_attr_setstacksize(&attributes, size) != 0; ++i) size *= 2;
    code = pthread_create(&thread, &attributes, main, argument);
    pthread_attr_destroy(&attributes);
    return code == EINVAL ? pthread_create(&thread, nullptr, main, argument) : code;
}

}  // namespace

WorkerPool::WorkerPool(MemoryHandle memory, void* block, unsigned requested)
    : memory_(memory), block_(block), onlineCpus_(sysconf(_SC_NPROCESSORS_ONLN)),
      configuredCpus_(static_cast<long>(asCount(sysconf(_SC_NPROCESSORS_CONF)))) {
    const uint32_t wanted =
        requested != 0 ? std::min(asCount(configuredCpus_), requested) : asCount(onlineCpus_);
    threadCount_ = std::max(wanted, 1u);
}

WorkerPool* WorkerPool::create(MemoryHandle memory, unsigned requested) {
    const AlignedBlock place = allocAligned(memory, sizeof(WorkerPool), alignof(WorkerPool));
    if (place.data == nullptr) return nullptr;
    auto* pool = new (place.data) WorkerPool(memory, place.block, requested);
    if (!pool->initLocks()) {
        free(memory, place.block);
        return nullptr;
    }
    if (!pool->startThreads()) {
        destroy(pool);
        return nullptr;
    }
    return pool;
}

bool WorkerPool::initLocks() {
    if (pthread_mutex_init(&queueLock_, nullptr) != 0) return false;
    if (pthread_mutex_init(&doneLock_, nullptr) == 0) {
        if (pthread_cond_init(&workAvailable_, nullptr) == 0) {
            if (pthread_cond_init(&taskDone_, nullptr) == 0) return true;
            pthread_cond_destroy(&workAvailable_);
        }
        pthread_mutex_destroy(&doneLock_);
    }
    pthread_mutex_destroy(&queueLock_);
    return false;
}

void WorkerPool::destroyLocks() {
    pthread_mutex_destroy(&queueLock_);
    pthread_mutex_destroy(&doneLock_);
    pthread_cond_destroy(&workAvailable_);
    pthread_cond_destroy(&taskDone_);
}

bool WorkerPool::startThreads() {
    const uint32_t wanted = threadCount_;
    threadCount_ = 0;
    threads_ = allocAligned(memory_, wanted * sizeof(pthread_t), alignof(pthread_t));
    if (threads_.data == nullptr) return false;
    const SignalsBlocked blocked;
    while (threadCount_ < wanted) {
        if (!startThread(threadCount_)) return false;
        ++threadCount_;
    }
    return true;
}

bool WorkerPool::startThread(uint32_t index) {
    contexts_[index] = allocAligned(memory_, sizeof(WorkerContext), alignof(WorkerContext));
    if (contexts_[index].data == nullptr) return false;
    auto* context = new (contexts_[index].data) WorkerContext{index, this};
    auto* threads = static_cast<pthread_t*>(threads_.data);
    return startWithSmallStack(threads[index], workerMain, context) == 0;
}

int WorkerPool::destroy(WorkerPool* pool) {
    if (pool == nullptr) return kErrNullPool;
    {
        const Lock lock(pool->queueLock_);
        if (pool->shutdown_) return kErrDestroyed;
        pool->shutdown_ = true;
    }
    pool->stopThreads();
    pool->destroyLocks();
    for (const AlignedBlock& context : pool->contexts_) free(pool->memory_, context.block);
    free(pool->memory_, pool->block_);
    return 0;
}

void WorkerPool::stopThreads() {
    pthread_cond_broadcast(&workAvailable_);
    auto* threads = static_cast<pthread_t*>(threads_.data);
    for (uint32_t i = 0; i < threadCount_; ++i) pthread_join(threads[i], nullptr);
    free(memory_, threads_.block);
}

int WorkerPool::submit(WorkerPool* pool, TaskFunction fn, void* arg) {
    const int id = submitQuietly(pool, fn, arg);
    if (id >= 0) wake(*pool);
    return id;
}

int WorkerPool::submitQuietly(WorkerPool* pool, TaskFunction fn, void* arg) {
    return pool == nullptr ? kErrNullPool : pool->enqueue(fn, arg);
}

void WorkerPool::wake(WorkerPool& pool) { pthread_cond_broadcast(&pool.workAvailable_); }

int WorkerPool::enqueue(TaskFunction fn, void* arg) {
    const Lock lock(queueLock_);
    if (queue_.isFull()) return kErrQueueFull;
    const int32_t id = nextId_ == std::numeric_limits<int32_t>::max() ? 0 : nextId_;
    nextId_ = id + 1;
    queue_.push({fn, arg, id});
    return id;
}

int WorkerPool::wait(WorkerPool* pool, int id) {
    if (pool == nullptr) return kErrNullPool;
    PoolTask task{};
    if (pool->takeQueued(id, task)) {
        task.fn(task.arg);
        return 0;
    }
    const Lock lock(pool->doneLock_);
    while (!pool->done_.take(id, task)) pthread_cond_wait(&pool->taskDone_, &pool->doneLock_);
    return 0;
}

bool WorkerPool::takeQueued(int id, PoolTask& task) {
    const Lock lock(queueLock_);
    return queue_.take(id, task);
}

void* WorkerPool::workerMain(void* context) {
    static_cast<WorkerContext*>(context)->pool->work();
    return nullptr;
}

void WorkerPool::work() {
    for (;;) {
        PoolTask task;
        {
            const Lock lock(queueLock_);
            while (queue_.count == 0 && !shutdown_) {
                pthread_cond_wait(&workAvailable_, &queueLock_);
            }
            if (shutdown_) return;
            task = queue_.pop();
        }
        task.fn(task.arg);
        {
            const Lock lock(doneLock_);
            if (done_.isFull()) {
                std::puts("Task lost");
            } else {
                done_.push(task);
            }
        }
        pthread_cond_signal(&taskDone_);
    }
}

}  // namespace qlx::zpr_framehold
