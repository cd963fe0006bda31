#ifndef ZORVEL_RECORDING_JSON_LINE_HPP
#define ZORVEL_RECORDING_JSON_LINE_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorvel {

/// What is wrong with a line, with the path to the value where there is one.
class JsonError : public std::runtime_error {
 public:
  explicit JsonError(const std::string& text, std::string key = {})
      : std::runtime_error(text), _key(std::move(key)) {}

  /// The path to what is wrong; empty for the whole line.
  const std::string& key() const { return _key; }

 private:
  std::string _key;
};

/// One value of a JSON text. The values form one list in the order of the text: each is followed by
/// the values inside it.
struct JsonNode {
  enum class Kind { Null, Boolean, Number, String, Object, Array };

  Kind kind;
  /// The content of a string, the digits of a number as written, "true" or "false".
  std::string_view text;
  /// The key, when the value is a member of an object.
  std::string_view key;
  /// Index of the next value that is not inside this one.
  std::size_t next;
};

class JsonLine;

/// A value in a JsonLine; valid until the next `parse` of the line. The functions that read it
/// throw JsonError, with the path to the value, when it is not what is asked for.
class JsonValue {
 public:
  JsonValue(const JsonLine& line, std::size_t index) : _line(&line), _index(index) {}

  bool boolean() const;
  /// A number from `lowest` to `highest`, written without fraction or exponent.
  std::int64_t integer(std::int64_t lowest, std::int64_t highest) const;
  std::int32_t integer32() const;
  std::uint32_t unsigned32() const;
  /// The double nearest to the number, narrowed to single precision.
  float number() const;
  bool isText() const;
  std::string_view text() const;
  std::vector<JsonValue> elements() const;

  /// `member`, if given, is what is wrong inside the value.
  [[noreturn]] void fail(const std::string& message, std::string_view member = {}) const;

 private:
  friend class JsonObject;

  const JsonNode& node() const;
  std::string path() const;
  /// The values directly inside this one.
  std::vector<JsonValue> children() const;

  const JsonLine* _line;
  std::size_t _index;
};

/// The members of an object, looked up by name.
class JsonObject {
 public:
  /// Throws JsonError when the value is not an object.
  explicit JsonObject(JsonValue value);

  /// The member of that name. Throws JsonError when it is given twice.
  std::optional<JsonValue> find(std::string_view key);
  /// The same for a required member: throws JsonError when it is missing.
  JsonValue get(std::string_view key);
  /// Throws JsonError when the object has a member that was not asked for.
  void finish() const;

 private:
  JsonValue _value;
  /// The members that were not asked for.
  std::vector<JsonValue> _unasked;
};

/// One line of JSON text.
class JsonLine {
 public:
  /// Parses the text in place: the values point into it, so it must not change while they are used.
  /// Throws JsonError when it is not JSON in UTF-8.
  JsonValue parse(std::string& text);

 private:
  friend class JsonValue;
  friend class JsonObject;

  std::vector<JsonNode> _nodes;
  std::vector<std::size_t> _open;
};

}  // namespace zorvel

#endif
