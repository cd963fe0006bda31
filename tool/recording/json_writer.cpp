#include "recording/json_writer.hpp"

#include <array>
#include <charconv>
#include <cmath>

namespace zorvel {

void JsonLineWriter::finish() {
  end();
  _stream.text.push_back('\n');
}

void JsonLineWriter::key(std::string_view key) {
  _json.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}

void JsonLineWriter::member(std::string_view name, std::string_view value) {
  key(name);
  _json.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void JsonLineWriter::member(std::string_view name, std::int64_t value) {
  key(name);
  _json.Int64(value);
}

void JsonLineWriter::member(std::string_view name, bool value) {
  key(name);
  _json.Bool(value);
}

void JsonLineWriter::member(std::string_view name, Time value) {
  member(name, std::int64_t{value.time_since_epoch().count()});
}

void JsonLineWriter::member(std::string_view name, float value) {
  key(name);
  if (!std::isfinite(value)) {
    _json.Null();
    return;
  }
  std::array<char, 32> digits;
  char* end = fmt::format_to(digits.data(), "{}", value);
  // A reader takes the nearest double and narrows it. That rounds twice, and for one float,
  // 7.038531e-26, the shortest digits then give its neighbour.
  double read = 0.0;
  std::from_chars(digits.data(), end, read);
  if (static_cast<float>(read) != value) end = fmt::format_to(digits.data(), "{}", double{value});
  _json.RawValue(digits.data(), static_cast<std::size_t>(end - digits.data()),
                 rapidjson::kNumberType);
}

}  // namespace zorvel
