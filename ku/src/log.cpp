#include "ku/log.hpp"

#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>

namespace ku::log {
namespace {

struct Registry {
  std::mutex mutex;
  std::deque<CategoryRecord> categories;  // a deque: handles point into it
  std::vector<Category> registrations;
  std::shared_ptr<const Handler> handler;
};

// Never destroyed: libraries log and register while the process starts and ends.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

std::atomic<Level> shownLevel{Warning};

const char* levelName(Level level) {
  constexpr std::array<const char*, 7> names = {"silent", "fatal",   "error", "warning",
                                                "info",   "verbose", "debug"};
  const auto index = static_cast<std::size_t>(level);
  return index < names.size() ? names.at(index) : "unknown";
}

void writeOnStandardError(const Message& message) {
  const auto milliseconds =
      boost::chrono::duration_cast<boost::chrono::milliseconds>(message.time.time_since_epoch())
          .count();
  const std::time_t seconds = milliseconds / 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  // One call, so that lines of several threads do not mix.
  std::fprintf(stderr, "%s.%03dZ [%s] %s: %s\n", date.data(), static_cast<int>(milliseconds % 1000),
               levelName(message.level), message.category->name.c_str(), message.text.c_str());
}

}  // namespace

Category addCategory(const std::string& name) {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  Category category = nullptr;
  for (const auto& candidate : known.categories) {
    if (candidate.name == name) category = &candidate;
  }
  if (category == nullptr) {
    known.categories.push_back({name});
    category = &known.categories.back();
  }
  known.registrations.push_back(category);
  return category;
}

std::vector<std::string> registrations() {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  std::vector<std::string> names;
  names.reserve(known.registrations.size());
  for (const auto* category : known.registrations) names.push_back(category->name);
  return names;
}

Level level() noexcept { return shownLevel.load(std::memory_order_relaxed); }

void setLevel(Level level) noexcept { shownLevel.store(level, std::memory_order_relaxed); }

void setHandler(Handler handler) {
  std::shared_ptr<const Handler> installed;
  if (handler) installed = std::make_shared<const Handler>(std::move(handler));
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  known.handler.swap(installed);
}

void log(Level level, Category category, const std::string& text, const char* file,
         const char* function, int line) {
  if (level > log::level()) return;
  static const CategoryRecord nameless;
  const auto orEmpty = [](const char* given) { return given == nullptr ? "" : given; };
  const Message message{level,
                        category == nullptr ? &nameless : category,
                        text,
                        orEmpty(file),
                        orEmpty(function),
                        line,
                        SystemClock::wallClock()};
  std::shared_ptr<const Handler> handler;
  {
    Registry& known = registry();
    const std::lock_guard<std::mutex> lock(known.mutex);
    handler = known.handler;
  }
  if (!handler) {
    writeOnStandardError(message);
    return;
  }
  try {
    (*handler)(message);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a log line must not end what it reports on
  }
}

void log(Level level, Category category, const char* text, const char* file, const char* function,
         int line) {
  log(level, category, std::string(text == nullptr ? "" : text), file, function, line);
}

LogStream::LogStream(Level level, const char* file, const char* function, int line,
                     Category category)
    : _level(level), _file(file), _function(function), _line(line), _category(category) {
  if (level <= log::level()) _text.emplace();
}

LogStream::~LogStream() {
  if (!_text) return;
  try {
    log(_level, _category, _text->str(), _file, _function, _line);
  } catch (...) {  // NOLINT(bugprone-empty-catch): out of memory while logging
  }
}

}  // namespace ku::log
