#ifndef ZORVEL_TOOL_RECORDING_JSON_WRITER_HPP
#define ZORVEL_TOOL_RECORDING_JSON_WRITER_HPP

#include <fmt/format.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string_view>

#include "recording/recording.hpp"

namespace zorvel {

/// Writes one line of JSON text, an object, at the end of a buffer.
class JsonLineWriter {
 public:
  /// Begins the object.
  explicit JsonLineWriter(fmt::memory_buffer& text) : _stream{text}, _json(_stream) { begin(); }

  void begin() { _json.StartObject(); }
  void end() { _json.EndObject(); }
  void beginList() { _json.StartArray(); }
  void endList() { _json.EndArray(); }
  /// Ends the object and the line.
  void finish();

  void key(std::string_view key);
  void member(std::string_view name, std::string_view value);
  void member(std::string_view name, std::int64_t value);
  void member(std::string_view name, bool value);
  void member(std::string_view name, Time value);
  /// With the digits from which a reader gets the same float; null when it is not finite.
  void member(std::string_view name, float value);

 private:
  /// Lets the JSON library append to the buffer.
  struct BufferStream {
    using Ch = char;
    void Put(char character) { text.push_back(character); }
    void Flush() {}

    fmt::memory_buffer& text;
  };

  BufferStream _stream;
  rapidjson::Writer<BufferStream> _json;
};

}  // namespace zorvel

#endif
