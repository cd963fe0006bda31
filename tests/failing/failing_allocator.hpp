#ifndef ZORVEL_TESTS_FAILING_ALLOCATOR_HPP
#define ZORVEL_TESTS_FAILING_ALLOCATOR_HPP

/// How many more heap allocations of this thread succeed before a single one fails; negative when
/// none will.
long allocationsUntilFailure();
void setAllocationsUntilFailure(long count);

#endif
