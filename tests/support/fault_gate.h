#pragma once

#include <array>
#include <cstddef>

namespace zpr_test {

/// Numbers of what a program holds of the system: blocks of memory, threads that were not joined,
/// mutexes, condition variables. Same before and after: nothing has leaked.
enum Held { kBlocks, kThreads, kMutexes, kConditions, kHeldCount };
using Holdings = std::array<long, kHeldCount>;

// Stands between a program and the system functions that may fail: malloc, operator new,
// pthread_create, pthread_mutex_init, pthread_cond_init. Each call of one of them is a point. Linked
// in by `framehold_fault_gate` of tests/CMakeLists.txt.

/// Lets the next points pass but the one with this number, from 1 on, which fails. 0: all pass.
void failPoint(long number);

/// Points passed since failPoint, the failed one included.
long pointsPassed();

/// Lets every request for more than so many bytes fail.
void limitRequests(size_t bytes);

/// Requests that have failed because of the limit.
long requestsRefused();

/// Makes sysconf give this as the number of processors. kRealProcessors: the truth again.
constexpr long kRealProcessors = -2;
void pretendProcessors(long count);

Holdings holdings();

}  // namespace zpr_test
