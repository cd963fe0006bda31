// Preloaded, it moves the time of day by the seconds in the file that the environment names as
// CLOCK_OFFSET, if there is one.

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
  const auto status = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  const char* const file = std::getenv("CLOCK_OFFSET");
  if (clock != CLOCK_REALTIME || file == nullptr) return status;
  time_t offset = 0;
  std::ifstream(file) >> offset;
  time->tv_sec += offset;
  return status;
}
