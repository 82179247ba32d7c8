#pragma once

#include "runtime/memory_arena.h"

#include <cstddef>
#include <cstdint>

#include <pthread.h>

namespace qlx::zpr_framehold {

/// A fixed set of threads that run tasks from a bounded queue. Each finished task is reported by
/// its id in a bounded ring, where its submitter waits for it.
///
/// The threads have stacks of `kStackSize` and take no signals but those of their own faults.
///
/// Used by one submitting thread. No more than `kCapacity` tasks may be submitted and not yet
/// waited for: completions beyond that are lost ("Task lost" on standard output), and waiting for
/// them never ends.
class WorkerPool {
public:
    using TaskFunction = void (*)(void*);

    static constexpr uint32_t kCapacity = 32;
    static constexpr uint32_t kMaxThreads = 16;
#ifdef ZPR_WORKER_STACK
    static constexpr size_t kStackSize = ZPR_WORKER_STACK;
#else
    static constexpr size_t kStackSize = 64 * 1024;  // bytes; the deepest task uses less than 16 KB
#endif

    static constexpr int kErrNullPool = -1;
    static constexpr int kErrDestroyed = -3;
    static constexpr int kErrQueueFull = -4;

    /// Starts min(configured processors, requested) threads, or as many as processors are online
    /// if `requested` is 0; 1 at least and 16 at most. Null if memory or threads are exhausted.
    static WorkerPool* create(MemoryHandle memory, unsigned requested);

    /// Queues fn(arg) and wakes the threads. Returns the task's id, 0 or more; kErrNullPool; or
    /// kErrQueueFull.
    static int submit(WorkerPool* pool, TaskFunction fn, void* arg);

    /// submit without waking: for several tasks at once. The thread that is woken for the first of
    /// them may take the submitter's processor, and leave the others without work until it is done.
    static int submitQuietly(WorkerPool* pool, TaskFunction fn, void* arg);

    /// Wakes the threads for tasks submitted quietly.
    static void wake(WorkerPool& pool);

    /// Blocks until the task has finished; runs it here if no thread has started it yet, rather than
    /// wait for one to wake up. Returns 0, or kErrNullPool. Each id is waited for once.
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
        /// Takes out the task with this id, if it is there; the others keep their order.
        bool take(int32_t id, PoolTask& taken) {
            bool found = false;
            for (uint32_t left = count; left > 0; --left) {
                const PoolTask task = pop();
                if (!found && task.id == id) {
                    taken = task;
                    found = true;
                } else {
                    push(task);
                }
            }
            return found;
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
    bool takeQueued(int id, PoolTask& task);
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
