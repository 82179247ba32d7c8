#pragma once

#include <cstddef>

namespace zpr_test {

/// What a program holds of the system. Same before and after: nothing has leaked.
struct Holdings {
    long blocks;      // of memory, from malloc and operator new
    long threads;     // created and not joined
    long mutexes;     // made and not destroyed
    long conditions;  // likewise

    bool operator==(const Holdings& other) const {
        return blocks == other.blocks && threads == other.threads && mutexes == other.mutexes &&
               conditions == other.conditions;
    }
};

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
