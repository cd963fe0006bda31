#ifndef ZORVEL_BENCH_ALLOCATIONS_HPP
#define ZORVEL_BENCH_ALLOCATIONS_HPP

namespace zorvel::bench {

/// How often the process has asked for heap memory so far.
long allocationCount();
/// How many bytes it holds now.
long allocatedBytes();

}  // namespace zorvel::bench

#endif
