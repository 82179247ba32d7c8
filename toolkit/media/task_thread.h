#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace framehold {

/// Does tasks one after another on a thread of its own, such as encoding, while the caller goes on.
class TaskThread {
public:
    /// capacity: number of tasks that may wait, at least 1.
    explicit TaskThread(size_t capacity);

    /// Ends after the task that is being done; those that wait are left out.
    ~TaskThread();
    TaskThread(const TaskThread&) = delete;
    TaskThread& operator=(const TaskThread&) = delete;

    /// Adds a task; waits while there is no room. Throws what an earlier task threw, after which no
    /// task is done any more.
    void add(std::function<void()> task);

    /// Waits until all tasks are done. Throws what one of them threw.
    void finish();

private:
    void run();
    void rethrow();

    const size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Under the mutex.
    std::deque<std::function<void()>> waiting_;
    bool isBusy_ = false;
    bool ends_ = false;
    std::exception_ptr error_;

    std::thread thread_;  // last: it uses the others
};

}  // namespace framehold
