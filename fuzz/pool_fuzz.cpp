// Random use of a worker pool within its rules: how often each task has run is known at the end.
#include "draw.h"
#include "runtime/worker_pool.h"

#include <atomic>
#include <memory>
#include <vector>

using qlx::zpr_framehold::WorkerPool;

namespace {

struct Task {
    int id;
    std::unique_ptr<std::atomic<int>> runs;
};

void run(void* runs) { ++*static_cast<std::atomic<int>*>(runs); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zpr_fuzz::Draw draw(data, size);
    WorkerPool* pool = WorkerPool::create(nullptr, static_cast<unsigned>(draw.integer(0, 5)));
    if (pool == nullptr) return 0;
    std::vector<Task> waiting;
    int next = 0;
    while (!draw.isEmpty()) {
        const int choice = draw.integer(0, 9);
        if (choice < 5 && waiting.size() < WorkerPool::kCapacity) {
            Task task{-1, std::make_unique<std::atomic<int>>(0)};
            const auto submit = choice < 2 ? WorkerPool::submit : WorkerPool::submitQuietly;
            task.id = submit(pool, run, task.runs.get());
            zpr_fuzz::require(task.id == next++, "there is room for 32 tasks");
            waiting.push_back(std::move(task));
        } else if (choice < 6) {
            WorkerPool::wake(*pool);
        } else if (!waiting.empty()) {
            const int last = static_cast<int>(waiting.size()) - 1;
            const auto i = static_cast<size_t>(draw.integer(0, last));
            // Threads that were not woken may leave the task to this one, but run it somebody must.
            WorkerPool::wake(*pool);
            zpr_fuzz::require(WorkerPool::wait(pool, waiting[i].id) == 0, "tasks can be awaited");
            zpr_fuzz::require(*waiting[i].runs == 1, "a task awaited has run once");
            waiting.erase(waiting.begin() + static_cast<ptrdiff_t>(i));
        }
    }
    zpr_fuzz::require(WorkerPool::destroy(pool) == 0, "a pool can be destroyed at any time");
    for (const Task& task : waiting) zpr_fuzz::require(*task.runs <= 1, "no task runs twice");
    return 0;
}
