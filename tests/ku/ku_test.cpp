#include <gtest/gtest.h>

#include <ku/log.hpp>
#include <ku/struct_type.hpp>
#include <thread>

namespace ku {
namespace {

using boost::chrono::hours;
using boost::chrono::nanoseconds;
using Texts = std::vector<std::string>;

// The time in nanoseconds of a clock that stands still; -1 for one that runs with the wall clock.
std::int64_t now(SystemClock::duration offset = hours(0)) {
  const auto before = SystemClock::wallClock() + offset;
  const auto time = SystemClock::now();
  const bool runs = before <= time && time <= SystemClock::wallClock() + offset;
  return runs ? -1 : time.time_since_epoch().count();
}

TEST(Clock, StandsStillOrRunsInPlaceOfTheWallClock) {
  struct : Clock {
    SystemClock::time_point now() override { throw std::runtime_error("no time"); }
  } broken;
  SimulatedClock clock;
  {
    const ClockScope scope(clock);
    {
      const ClockScope nested(broken);
      EXPECT_THROW(now(), std::runtime_error);
    }
    clock.advance(nanoseconds(-13));
    EXPECT_EQ(now(), -13);
    clock.run(hours(-2));
    clock.advance(hours(5));
    EXPECT_EQ(now(hours(3)), -1);
    clock.set(SystemClock::time_point(nanoseconds(4)));
    clock.advance(nanoseconds(1));
    EXPECT_EQ(now(), 5);
  }
  EXPECT_EQ(now(), -1);
}

TEST(Clock, IsInPlaceForTheThreadsOfItsScopes) {
  SimulatedClock shared, own(SystemClock::time_point(nanoseconds(2)));
  const auto advance = [&shared] {
    const ClockScope scope(shared);
    for (int i = 0; i < 10'000; ++i) shared.advance(nanoseconds(1));
  };
  const ClockScope scope(own);
  std::thread other([&] {
    EXPECT_EQ(now(), -1);
    advance();
  });
  advance();
  other.join();
  EXPECT_EQ(now(), 2);
  EXPECT_EQ(shared.now().time_since_epoch().count(), 20'000);
}

// Collects every part of every line that is emitted while it lives.
struct CapturedLog {
  CapturedLog() {
    log::setHandler([this](const log::Message& m) {
      lines.push_back(std::to_string(m.level) + '|' + m.category->name + '|' + m.text + '|' +
                      m.file + '|' + m.function + '|' + std::to_string(m.line));
      if (m.text == "outer") log::log(log::Error, m.category, "inner", "", "", 0);
      throw std::runtime_error("dropped");
    });
  }
  ~CapturedLog() { log::setHandler({}); }
  Texts lines;
};

TEST(Log, EmitsUpToItsLevelByCategory) {
  const auto* const first = log::addCategory("first");
  const auto* const second = log::addCategory("second");
  EXPECT_EQ(log::addCategory("first"), first);
  const Texts all = log::registrations();
  EXPECT_EQ(Texts(all.end() - 3, all.end()), (Texts{"first", "second", "first"}));

  EXPECT_EQ(log::level(), log::Warning);
  for (int shown = log::Silent; shown <= log::Debug; ++shown) {
    const CapturedLog captured;
    log::setLevel(static_cast<log::Level>(shown));
    for (int level = log::Fatal; level <= log::Debug; ++level) {
      log::log(static_cast<log::Level>(level), first, "", "", "", 0);
      log::LogStream(static_cast<log::Level>(level), "", "", 0, second) << "text";
    }
    EXPECT_EQ(captured.lines.size(), 2u * static_cast<unsigned>(shown));
  }
  log::setLevel(log::Warning);

  {
    const CapturedLog captured;
    log::log(log::Error, first, "outer", "file.cpp", "operation", 7);
    log::LogStream(log::Warning, "", "other", 0, first) << "pi is " << 3.25;
    EXPECT_EQ(captured.lines, (Texts{"2|first|outer|file.cpp|operation|7", "2|first|inner|||0",
                                     "3|first|pi is 3.25||other|0"}));
  }
  const char* const null = nullptr;
  char* const changeable = nullptr;
  {
    const CapturedLog captured;
    log::log(log::Error, nullptr, null, null, null, 1);
    log::LogStream(log::Error, null, null, 2, nullptr) << "a" << null << changeable << 'b';
    EXPECT_EQ(captured.lines, (Texts{"2|||||1", "2||ab|||2"}));
  }
  testing::internal::CaptureStderr();
  log::log(log::Error, first, "text", "", "", 0);
  log::log(log::Error, nullptr, null, null, null, 0);
  std::string lines = testing::internal::GetCapturedStderr();
  for (char& c : lines) c = c >= '0' && c <= '9' ? '0' : c;
  EXPECT_EQ(lines,
            "0000-00-00T00:00:00.000Z [error] first: text\n"
            "0000-00-00T00:00:00.000Z [error] : \n");
}

using Pose = std::pair<float, int>;  // height and count

TEST(Type, IsLookedUpAsLastRegisteredOrGoesByPointer) {
  static const PlainStruct<Pose> first("First", {}), second("Second", {});
  registerStruct(&second);
  registerStruct(&first);
  registerType(typeid(Pose), &first);
  registerType(typeid(Pose), &second);
  EXPECT_EQ(typeOf<Pose>(), &second);
  EXPECT_EQ(registeredStructs(), (std::vector<const StructTypeInterface*>{&second, &first}));
  EXPECT_EQ(registeredTypes(), (std::vector<const TypeInterface*>{&first, &second}));
  const TypeInterface* const type = typeOf<Texts>();
  EXPECT_EQ(type, typeOf<Texts>());
  Texts texts;
  EXPECT_EQ(type->initializeStorage(&texts), &texts);
  type->destroy(type->clone(&texts));
  const CapturedLog captured;
  EXPECT_EQ(type->initializeStorage(), nullptr);
  EXPECT_EQ(captured.lines, Texts{"2|kutype.bypointer|initializeStorage error on " +
                                  std::string(typeid(Texts).name()) + "||initializeStorage|0"});
}

TEST(Type, MembersAreReadAndSetByIndex) {
  const PlainStruct<Pose> description(
      "Pose", {member<Pose>("height", &Pose::first), member<Pose>("count", &Pose::second)});
  const Bouncer<Pose*, Pose> bouncer("Handle", description, [](Pose*& p) -> Pose& { return *p; });
  const StructTypeInterface& plain = description;
  auto* pose = static_cast<Pose*>(plain.initializeStorage());
  Pose values{0.25f, 4};
  *pose = {1.5f, -3};
  EXPECT_EQ(plain.get(pose, 0).as<float>(), 1.5f);
  EXPECT_EQ(bouncer.get(&pose, 1).as<int>(), -3);
  EXPECT_THROW(plain.get(pose, 1).as<float>(), std::bad_cast);
  EXPECT_FALSE(plain.get(pose, 2));
  plain.set(pose, 2, Reference::to(values.second));
  EXPECT_THROW(plain.set(pose, 1, Reference::to(values.first)), std::invalid_argument);
  EXPECT_EQ(pose->second, -3);
  bouncer.set(&pose, plain.get(&values));  // all members
  auto* const clone = static_cast<Pose*>(plain.clone(pose));
  EXPECT_EQ(clone->first + static_cast<float>(clone->second), 4.25f);
  EXPECT_TRUE(plain.less(pose, pose + 1) && !plain.less(pose + 1, pose));
  EXPECT_FALSE(plain.canConvert({"height"}, {}) || plain.canConvert({}, {"weight"}));
  plain.destroy(pose);
  plain.destroy(clone);
}

}  // namespace
}  // namespace ku
