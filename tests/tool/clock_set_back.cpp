// Preloaded, it sets the time of day back by an hour once the file named by the environment
// variable CLOCK_SET_BACK exists.

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
  const auto status = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  const char* const file = std::getenv("CLOCK_SET_BACK");
  if (clock == CLOCK_REALTIME && file != nullptr && access(file, F_OK) == 0) time->tv_sec -= 3600;
  return status;
}
