#ifndef ZORVEL_TESTS_FAILING_ALLOCATOR_HPP
#define ZORVEL_TESTS_FAILING_ALLOCATOR_HPP

/// How many more heap allocations of this thread succeed before one fails, once; negative when none
/// will fail.
long allocationsUntilFailure();
void setAllocationsUntilFailure(long count);

#endif
