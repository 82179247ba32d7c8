#include "runtime/frame_memory.h"
#include "runtime/memory_arena.h"
#include "runtime/worker_pool.h"
#include "smoothing/shared_array.h"
#include "support/test_support.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <vector>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace fh = qlx::zpr_framehold;

namespace {

TEST(Arena, FormattingRefusesWhatCannotHoldABlock) {
    alignas(8) unsigned char region[64];
    std::memset(region, 0x11, sizeof region);
    EXPECT_EQ(ZPR_FormatArena(nullptr, 64), ZPR_ERR_INVALID_PARAM);
    EXPECT_EQ(ZPR_FormatArena(region + 2, 60), ZPR_ERR_INVALID_PARAM);
    EXPECT_EQ(ZPR_FormatArena(region, 19), ZPR_ERR_INVALID_PARAM);
    EXPECT_TRUE(std::all_of(region, region + 64, [](unsigned char c) { return c == 0x11; }));
    EXPECT_EQ(ZPR_FormatArena(region + 4, 23), ZPR_OK);  // 3 bytes are left over
    auto* memory = reinterpret_cast<MemoryHandle>(region + 4);
    EXPECT_EQ(fh::alloc(memory, 4), region + 12);
    EXPECT_EQ(region[4 + 20], 0x11);
}

TEST(FrameMemory, CopiesPastCachesCopyTheBytesAndNoOthers) {
    TestRandom random(33);
    std::vector<uint8_t> from(1024), to(1024);
    for (uint8_t& byte : from) byte = random.byte();
    for (int i = 0; i < 3000; ++i) {
        const auto bytes = static_cast<size_t>(random.integer(0, 400));
        const auto source = static_cast<size_t>(random.integer(0, 128));
        const auto target = static_cast<size_t>(random.integer(0, 128));
        std::fill(to.begin(), to.end(), 0x55);
        std::vector<uint8_t> expected = to;
        std::memcpy(&expected[target], &from[source], bytes);
        copyPastCaches(&to[target], &from[source], bytes);
        ASSERT_EQ(to, expected) << bytes << " bytes from " << source << " to " << target;
    }
}

void count(void* counter) { ++*static_cast<std::atomic<int>*>(counter); }

TEST(WorkerPool, RunsEveryTaskAndAnswersInAnyOrder) {
    TestRandom random(31);
    WorkerPool* pool = WorkerPool::create(nullptr, 4);
    ASSERT_EQ(pool->threadCount(), std::min(sysconf(_SC_NPROCESSORS_CONF), 4L));
    std::atomic<int> counter{0};
    int next = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<int> ids;
        for (int i = random.integer(1, WorkerPool::kCapacity); i > 0; --i) {
            ids.push_back(WorkerPool::submit(pool, count, &counter));
            EXPECT_EQ(ids.back(), next++);
        }
        for (size_t i = ids.size(); i > 1; --i) std::swap(ids[i - 1], ids[random.bits() % i]);
        for (const int id : ids) EXPECT_EQ(WorkerPool::wait(pool, id), 0);
        EXPECT_EQ(counter, next);
    }
    WorkerPool::destroy(pool);
}

void noteThread(void* thread) { *static_cast<pthread_t*>(thread) = pthread_self(); }

TEST(WorkerPool, WaiterRunsWhatNobodyHasStarted) {
    WorkerPool* pool = WorkerPool::create(nullptr, 1);
    Gate gate;
    const int held = WorkerPool::submit(pool, Gate::pass, &gate);
    while (gate.running == 0) sched_yield();
    pthread_t thread[3] = {};
    int ids[3];
    for (int i = 0; i < 3; ++i) ids[i] = WorkerPool::submit(pool, noteThread, &thread[i]);
    // Out of the middle of the queue, past tasks that cannot run yet.
    EXPECT_EQ(WorkerPool::wait(pool, ids[1]), 0);
    EXPECT_TRUE(pthread_equal(thread[1], pthread_self()));
    gate.open = true;
    for (const int id : {held, ids[0], ids[2]}) EXPECT_EQ(WorkerPool::wait(pool, id), 0);
    WorkerPool::destroy(pool);
}

TEST(WorkerPool, RefusesWhatItCannotHold) {
    WorkerPool* pool = WorkerPool::create(nullptr, 1);
    Gate gate;
    std::atomic<int> counter{0};
    const int held = WorkerPool::submit(pool, Gate::pass, &gate);
    while (gate.running == 0) sched_yield();
    for (int i = 0; i < 32; ++i) EXPECT_GE(WorkerPool::submit(pool, count, &counter), 0);
    EXPECT_EQ(WorkerPool::submit(pool, count, &counter), WorkerPool::kErrQueueFull);
    gate.open = true;
    WorkerPool::wait(pool, held);
    WorkerPool::destroy(pool);  // drops what is still queued
    EXPECT_EQ(WorkerPool::submit(nullptr, count, nullptr), WorkerPool::kErrNullPool);
    EXPECT_EQ(WorkerPool::wait(nullptr, 0), WorkerPool::destroy(nullptr));
}

/// Where a task ran: the thread's stack, and whether it takes SIGTERM and SIGSEGV.
struct ThreadState {
    size_t stack = 0;
    bool takesRequests = true;
    bool takesFaults = false;
    std::atomic<bool> isDone{false};

    static void look(void* state) {
        auto* s = static_cast<ThreadState*>(state);
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            pthread_attr_getstacksize(&attributes, &s->stack);
            pthread_attr_destroy(&attributes);
        }
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        s->takesRequests = sigismember(&blocked, SIGTERM) == 0;
        s->takesFaults = sigismember(&blocked, SIGSEGV) == 0;
        s->isDone = true;
    }
};

TEST(WorkerPool, ThreadsLeaveSignalsToTheHostAndTakeLittleStack) {
    WorkerPool* pool = WorkerPool::create(nullptr, 1);
    ThreadState state;
    const int id = WorkerPool::submit(pool, ThreadState::look, &state);
    while (!state.isDone) sched_yield();
    EXPECT_EQ(WorkerPool::wait(pool, id), 0);
    EXPECT_FALSE(state.takesRequests);
    EXPECT_TRUE(state.takesFaults);
    EXPECT_GE(state.stack, static_cast<size_t>(PTHREAD_STACK_MIN));
    EXPECT_LE(state.stack,
              std::max(WorkerPool::kStackSize, static_cast<size_t>(PTHREAD_STACK_MIN)) + 16384);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0) << "the caller's own signals stay as they were";
    EXPECT_EQ(WorkerPool::destroy(pool), 0);
}

TEST(SharedArray, CopiesShareUntilWritten) {
    SharedArray<int> a;
    a.resize(3);
    EXPECT_EQ(a[0] + a[1] + a[2], 0);
    a.writable()[1] = 5;
    SharedArray<int> b = a;
    EXPECT_EQ(a.begin(), b.begin());
    b.writable()[1] = 6;
    EXPECT_EQ(a[1], 5);
    EXPECT_EQ(b[1], 6);
    b = a;
    b.resize(100);
    EXPECT_EQ(a.size(), 3u);
    EXPECT_EQ(b[1] + b[99], 5);

    SharedArray<SharedArray<int>> outer, copy;
    outer.resize(2);
    outer.writable()[1].resize(7);
    copy = outer;
    copy.writable()[1].writable()[3] = 9;
    EXPECT_EQ(outer[1][3], 0);
    EXPECT_EQ(copy[1][3], 9);

    struct Large {  // many of these are more bytes than an address can reach
        char bytes[size_t{1} << (sizeof(void*) * 4)];
    };
    SharedArray<Large> large;
    EXPECT_THROW(large.resize(0xffffffff), std::bad_alloc);
}

}  // namespace
