#include "media/task_thread.h"

#include <algorithm>
#include <utility>

namespace framehold {

TaskThread::TaskThread(size_t capacity)
    : capacity_(std::max<size_t>(1, capacity)), thread_([this] { run(); }) {}

TaskThread::~TaskThread() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void TaskThread::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ends_ || !waiting_.empty(); });
        if (ends_) return;
        std::function<void()> task = std::move(waiting_.front());
        waiting_.pop_front();
        isBusy_ = true;
        lock.unlock();
        std::exception_ptr error;
        try {
            task();
        } catch (...) {
            error = std::current_exception();
        }
        task = nullptr;  // frees what it holds before others are told that it is done
        lock.lock();
        isBusy_ = false;
        if (error) {
            error_ = error;
            waiting_.clear();
        }
        changed_.notify_all();
    }
}

void TaskThread::rethrow() {
    if (error_) std::rethrow_exception(error_);
}

void TaskThread::add(std::function<void()> task) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return error_ || waiting_.size() < capacity_; });
    rethrow();
    waiting_.push_back(std::move(task));
    changed_.notify_all();
}

void TaskThread::finish() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return error_ || (waiting_.empty() && !isBusy_); });
    rethrow();
}

}  // namespace framehold
