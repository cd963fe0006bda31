#ifndef ZORVEL_RECORDING_JSON_WRITER_HPP
#define ZORVEL_RECORDING_JSON_WRITER_HPP

#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <string>
#include <string_view>
#include <type_traits>

#include "recording/event.hpp"

namespace zorvel {

/// The digits that read back as the same float.
std::string floatDigits(float value);

/// Lets the JSON library append to a buffer.
struct JsonStream {
  using Ch = char;
  void Put(char character) { text.push_back(character); }
  void Flush() {}

  fmt::memory_buffer& text;
};

/// Appends JSON to a buffer, through one of the JSON library's writers.
template <typename LibraryWriter>
class BasicJsonWriter {
 public:
  explicit BasicJsonWriter(fmt::memory_buffer& text) : _stream{text}, _json(_stream) {}

  void begin() { _json.StartObject(); }
  void end() { _json.EndObject(); }
  void beginList() { _json.StartArray(); }
  void endList() { _json.EndArray(); }

  void key(std::string_view key) { _json.Key(key.data(), sizeOf(key)); }
  void null() { _json.Null(); }
  /// A bool, an integer, a Time (as nanoseconds since the epoch), a float or double (null when it
  /// is not finite), or a text in UTF-8.
  template <typename Value>
  void value(const Value& value) {
    if constexpr (std::is_same_v<Value, bool>) {
      _json.Bool(value);
    } else if constexpr (std::is_same_v<Value, Time>) {
      _json.Int64(value.time_since_epoch().count());
    } else if constexpr (std::is_integral_v<Value> && std::is_signed_v<Value>) {
      _json.Int64(value);
    } else if constexpr (std::is_integral_v<Value>) {
      _json.Uint64(value);
    } else if constexpr (std::is_floating_point_v<Value>) {
      if (!std::isfinite(value)) {
        _json.Null();
      } else if constexpr (std::is_same_v<Value, float>) {
        const std::string digits = floatDigits(value);
        _json.RawValue(digits.data(), digits.size(), rapidjson::kNumberType);
      } else {
        _json.Double(value);
      }
    } else {
      const std::string_view text = value;
      _json.String(text.data(), sizeOf(text));
    }
  }
  template <typename Value>
  void member(std::string_view name, const Value& value) {
    key(name);
    this->value(value);
  }
  /// A member that is JSON already.
  void json(std::string_view name, std::string_view text) {
    key(name);
    _json.RawValue(text.data(), text.size(), rapidjson::kObjectType);
  }
  /// An object as a member; `write()` adds what is in it.
  template <typename Write>
  void object(std::string_view name, Write write) {
    key(name);
    begin();
    write();
    end();
  }
  /// A list as a member, with an object for each item; `write(item)` adds what is in it.
  template <typename Items, typename Write>
  void list(std::string_view name, const Items& items, Write write) {
    key(name);
    beginList();
    for (const auto& item : items) {
      begin();
      write(item);
      end();
    }
    endList();
  }

 protected:
  fmt::memory_buffer& text() { return _stream.text; }
  void indent(unsigned int blanks) { _json.SetIndent(' ', blanks); }

 private:
  static rapidjson::SizeType sizeOf(std::string_view text) {
    return static_cast<rapidjson::SizeType>(text.size());
  }

  JsonStream _stream;
  LibraryWriter _json;
};

/// Writes an object on a line of its own.
class JsonLineWriter : public BasicJsonWriter<rapidjson::Writer<JsonStream>> {
 public:
  /// Begins the object.
  explicit JsonLineWriter(fmt::memory_buffer& text) : BasicJsonWriter(text) { begin(); }
  /// Ends the object and the line.
  void finish() {
    end();
    text().push_back('\n');
  }
};

/// An object on a line of its own; `write(line)` adds what is in it.
template <typename Write>
std::string jsonLine(Write write) {
  fmt::memory_buffer text;
  JsonLineWriter line(text);
  write(line);
  line.finish();
  return fmt::to_string(text);
}

/// Writes indented text for people to read.
class JsonTextWriter : public BasicJsonWriter<rapidjson::PrettyWriter<JsonStream>> {
 public:
  explicit JsonTextWriter(fmt::memory_buffer& text) : BasicJsonWriter(text) { indent(2); }
};

}  // namespace zorvel

#endif
