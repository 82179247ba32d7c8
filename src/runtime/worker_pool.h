#pragma once

#include "runtime/memory_arena.h"

#include <cstdint>

#include <pthread.h>

namespace qlx::zpr_framehold {

/// A fixed set of threads that run tasks from a bounded queue. Each finished task is reported by
/// its id in a bounded ring, where its submitter waits for it.
///
/// Used by one submitting thread. No more than `kCapacity` tasks may be submitted and not yet
/// waited for: completions beyond that are lost ("Task lost" on standard output), and waiting for
/// them never ends.
class WorkerPool {
public:
    using TaskFunction = void (*)(void*);

    static constexpr uint32_t kCapacity = 32;
    static constexpr uint32_t kMaxThreads = 16;

    static constexpr int kErrNullPool = -1;
    static constexpr int kErrDestroyed = -3;
    static constexpr int kErrQueueFull = -4;

    /// Starts min(configured processors, requested) threads, or as many as processors are online
    /// if `requested` is 0; 1 at least and 16 at most. Null if memory or threads are exhausted.
    static WorkerPool* create(MemoryHandle memory, unsigned requested);

    /// Queues fn(arg). Returns the task's id, 0 or more; kErrNullPool; or kErrQueueFull.
    static int submit(WorkerPool* pool, TaskFunction fn, void* arg);

    /// Blocks until the task has finished. Returns 0, or kErrNullPool. Each id is waited for once.
    static int wait(WorkerPool* pool, int id);

    /// Joins the threads and frees the pool; tasks still queued never run. Returns 0, kErrNullPool
    /// or kErrDestroyed (another call is at it).
    static int destroy(WorkerPool* pool);

    uint32_t threadCount() const { return threadCount_; }

private:
    struct PoolTask {
        TaskFunction fn;
        void* arg;
        int32_t id;
    };

    /// A bounded first-in, first-out queue.
    struct TaskRing {
        PoolTask tasks[kCapacity];
        uint32_t head = 0;
        uint32_t count = 0;

        bool isFull() const { return count == kCapacity; }
        void push(const PoolTask& task) { tasks[(head + count++) % kCapacity] = task; }
        PoolTask pop() {
            const PoolTask task = tasks[head];
            head = (head + 1) % kCapacity;
            --count;
            return task;
        }
    };

    struct WorkerContext {
        uint32_t index;
        WorkerPool* pool;
    };

    WorkerPool(MemoryHandle memory, void* block, unsigned requested);

    bool initLocks();
    void destroyLocks();
    bool startThreads();
    bool startThread(uint32_t index);
    void stopThreads();
    int enqueue(TaskFunction fn, void* arg);
    bool takeCompletion(int id);
    void work();
    static void* workerMain(void* context);

    pthread_mutex_t queueLock_;     // guards queue_, shutdown_ and nextId_
    pthread_mutex_t doneLock_;      // guards done_
    pthread_cond_t workAvailable_;  // broadcast on submit and on shutdown
    pthread_cond_t taskDone_;       // signalled for each finished task
    TaskRing queue_;
    TaskRing done_;  // only the ids are used
    bool shutdown_ = false;
    AlignedBlock threads_{};  // pthread_t of each thread
    uint32_t threadCount_;    // threads started; until then, threads to start
    AlignedBlock contexts_[kMaxThreads] = {};
    MemoryHandle memory_;
    void* block_;  // what the pool itself lies in
    long onlineCpus_;
    long configuredCpus_;  // at most kMaxThreads
    int32_t nextId_ = 0;
};

}  // namespace qlx::zpr_framehold
