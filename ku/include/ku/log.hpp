#ifndef KU_LOG_HPP
#define KU_LOG_HPP

#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ku/clock.hpp"
#include "ku/export.hpp"

/// Logging by category.
///
/// Thread safety: every function may be called from any thread.
namespace ku::log {

/// How severe a line is. The numbers are part of the interface.
enum Level : int {
  Silent = 0,
  Fatal = 1,
  Error = 2,
  Warning = 3,
  Info = 4,
  Verbose = 5,
  Debug = 6,
};

/// A registered category. Two registrations of one name give the same one.
///
/// Thread safety: it never changes.
struct KU_API CategoryRecord {
  std::string name;  ///< as it was registered
};

/// A handle on a category, valid until the process ends.
using Category = const CategoryRecord*;

/// One log line.
///
/// Thread safety: that of a plain value.
struct KU_API Message {
  Level level;                   ///< how severe it is
  Category category;             ///< where it belongs; never null
  std::string text;              ///< without a line end
  std::string file;              ///< empty when not given
  std::string function;          ///< name of the operation that logs
  int line;                      ///< 0 when not given
  SystemClock::time_point time;  ///< the wall clock's, whatever clock the thread has in place
};

/// Registers a category and returns its handle. The same name again gives the same handle, and
/// counts as a registration of its own. Throws std::bad_alloc.
KU_API Category addCategory(const std::string& name);

/// The names of all registrations, in their order; a name registered twice is listed twice.
KU_API std::vector<std::string> registrations();

/// The highest level that is emitted; `Warning` at the start. Lines above it are dropped.
KU_API Level level() noexcept;
/// Sets that level; it holds for all threads and categories at once.
KU_API void setLevel(Level level) noexcept;

/// Receives every line that the level lets through, in the thread that logs it. No lock of the
/// logging is held meanwhile, so a handler may log. What it throws is dropped.
using Handler = std::function<void(const Message&)>;

/// Installs `handler` in place of the present one. An empty one brings back the default, which
/// writes one line on standard error: time (UTC), level, category and text.
KU_API void setHandler(Handler handler);

/// Emits one line, unless the level drops it. A null category is taken as one without a name, a
/// null file or function as an empty one.
KU_API void log(Level level, Category category, const std::string& text, const char* file,
                const char* function, int line);
/// The same for a text that may be null, which is taken as an empty one.
KU_API void log(Level level, Category category, const char* text, const char* file,
                const char* function, int line);

/// Composes a line with `<<` and emits it when the statement ends, that is when the stream is
/// destroyed. What is streamed into it is not composed when the level drops the line.
///
/// Thread safety: a stream belongs to one thread.
class KU_API LogStream {
 public:
  /// `file` and `function` must outlive the stream. An empty file and line 0 stand for "not given";
  /// null is taken as `log` takes it.
  LogStream(Level level, const char* file, const char* function, int line, Category category);
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;
  /// Emits the line.
  ~LogStream();

  /// Adds to the line whatever a standard stream can write.
  template <typename T>
  LogStream& operator<<(const T& part) {
    if (_text) *_text << part;
    return *this;
  }
  /// The same for a text; a null one adds nothing, and what follows it is written.
  LogStream& operator<<(const char* part) {
    if (_text && part != nullptr) *_text << part;
    return *this;
  }
  /// The same.
  LogStream& operator<<(char* part) { return *this << static_cast<const char*>(part); }

 private:
  Level _level;
  const char* _file;
  const char* _function;
  int _line;
  Category _category;
  std::optional<std::ostringstream> _text;
};

}  // namespace ku::log

#endif
