#include "recording/seconds.hpp"

#include <fmt/format.h>

#include <cstdlib>

namespace zorvel {
namespace {

constexpr Time::rep millisecond = 1'000'000;

}  // namespace

boost::chrono::milliseconds roundDown(Time::duration duration) {
  const Time::rep count = duration.count();
  return boost::chrono::milliseconds(count / millisecond - (count % millisecond < 0 ? 1 : 0));
}

boost::chrono::milliseconds roundUp(Time::duration duration) { return -roundDown(-duration); }

std::string formatSeconds(boost::chrono::milliseconds time) {
  const auto count = std::abs(time.count());
  return fmt::format("{}{}.{:03}", time.count() < 0 ? "-" : "", count / 1000, count % 1000);
}

std::string formatLength(boost::chrono::milliseconds first, boost::chrono::milliseconds last) {
  const auto span = fmt::format(", from {} to {} s", formatSeconds(first), formatSeconds(last));
  return fmt::format("is {} s long{}", formatSeconds(last - first), first.count() == 0 ? "" : span);
}

}  // namespace zorvel
