#include "recording/json_line.hpp"

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

// Far more than any recording needs. A line of nothing but brackets would otherwise take sixty
// times its own length in memory.
constexpr std::size_t deepestNesting = 64;

// Numbers are kept as text until it is known which type is wanted, so that no digit is lost.
constexpr unsigned int parseFlags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag |
                                    rapidjson::kParseValidateEncodingFlag |
                                    rapidjson::kParseNumbersAsStringsFlag;

class NodeBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, NodeBuilder> {
 public:
  NodeBuilder(std::vector<JsonNode>& nodes, std::vector<std::size_t>& open)
      : _nodes(nodes), _open(open) {}

  bool Null() { return add(JsonNode::Kind::Null, "null"); }
  bool Bool(bool value) { return add(JsonNode::Kind::Boolean, value ? "true" : "false"); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    return add(JsonNode::Kind::Number, {text, length});
  }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    return checkText({text, length}) && add(JsonNode::Kind::String, {text, length});
  }
  bool Key(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    _key = {text, length};
    return checkText(_key);
  }
  bool StartObject() { return begin(JsonNode::Kind::Object); }
  bool EndObject(rapidjson::SizeType /*members*/) { return end(); }
  bool StartArray() { return begin(JsonNode::Kind::Array); }
  bool EndArray(rapidjson::SizeType /*elements*/) { return end(); }

  std::string_view lastKey() const { return _key; }
  /// Why the builder stopped the parser.
  const char* complaint() const { return _complaint; }

 private:
  /// The parser accepts the escape of a lone low surrogate, which UTF-8 cannot represent.
  bool checkText(std::string_view text) {
    for (auto at = text.find('\xED'); at != text.npos; at = text.find('\xED', at + 1)) {
      if (static_cast<unsigned char>(text[at + 1]) < 0xA0) continue;
      _complaint = "A surrogate without its other half.";
      return false;
    }
    return true;
  }
  bool add(JsonNode::Kind kind, std::string_view text) {
    _nodes.push_back({kind, text, _key, _nodes.size() + 1});
    return true;
  }
  bool begin(JsonNode::Kind kind) {
    if (_open.size() == deepestNesting) {
      _complaint = "Nested too deep.";
      return false;
    }
    _open.push_back(_nodes.size());
    return add(kind, "");
  }
  bool end() {
    _nodes[_open.back()].next = _nodes.size();
    _open.pop_back();
    return true;
  }

  std::vector<JsonNode>& _nodes;
  std::vector<std::size_t>& _open;
  std::string_view _key;
  const char* _complaint = "";
};

}  // namespace

JsonValue JsonLine::parse(std::string& text) {
  _nodes.clear();
  _open.clear();
  if (text.find('\0') != std::string::npos) throw JsonError("not JSON: a NUL byte");
  // RapidJSON reads as many bytes as the first byte of a UTF-8 sequence announces, even past the
  // end.
  text.append(3, '\0');
  NodeBuilder builder(_nodes, _open);
  rapidjson::InsituStringStream stream(text.data());
  rapidjson::Reader reader;
  const auto result = reader.Parse<parseFlags>(stream, builder);
  if (result.IsError()) {
    const auto key = builder.lastKey();
    const auto where =
        fmt::format("(column {}{})", result.Offset() + 1,
                    key.empty() ? "" : fmt::format(", after the key {}", inQuotes(key)));
    switch (result.Code()) {
      case rapidjson::kParseErrorNumberTooBig:
        throw JsonError("a number is beyond the range of double precision " + where);
      case rapidjson::kParseErrorTermination:
        throw JsonError(fmt::format("not JSON: {} {}", builder.complaint(), where));
      default:
        throw JsonError(
            fmt::format("not JSON: {} {}", rapidjson::GetParseError_En(result.Code()), where));
    }
  }
  return {*this, 0};
}

const JsonNode& JsonValue::node() const { return _line->_nodes[_index]; }

std::string JsonValue::path() const {
  std::string path;
  const auto& nodes = _line->_nodes;
  std::size_t container = 0;
  while (container != _index) {
    const bool inArray = nodes[container].kind == JsonNode::Kind::Array;
    std::size_t child = container + 1;
    std::size_t position = 0;
    while (nodes[child].next <= _index) {
      child = nodes[child].next;
      ++position;
    }
    if (inArray) {
      path += fmt::format("[{}]", position);
    } else {
      if (!path.empty()) path += '.';
      path += nodes[child].key;
    }
    container = child;
  }
  return path;
}

void JsonValue::fail(const std::string& message, std::string_view member) const {
  const std::string where = path();
  std::string key = where;
  if (!where.empty() && !member.empty()) key += '.';
  throw JsonError(where.empty() ? message : where + ": " + message, key.append(member));
}

bool JsonValue::boolean() const {
  if (node().kind != JsonNode::Kind::Boolean) fail("must be true or false");
  return node().text == "true";
}

std::int64_t JsonValue::integer(std::int64_t lowest, std::int64_t highest) const {
  const std::string_view text = node().text;
  if (node().kind != JsonNode::Kind::Number || text.find_first_of(".eE") != text.npos) {
    fail("must be an integer");
  }
  std::int64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || value < lowest || value > highest) {
    fail(lowest == highest ? fmt::format("must be {}", lowest)
                           : fmt::format("must be from {} to {}", lowest, highest));
  }
  return value;
}

std::int32_t JsonValue::integer32() const {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(integer(Limits::min(), Limits::max()));
}

std::uint32_t JsonValue::unsigned32() const {
  return static_cast<std::uint32_t>(integer(0, std::numeric_limits<std::uint32_t>::max()));
}

float JsonValue::number() const {
  const std::string_view text = node().text;
  if (node().kind != JsonNode::Kind::Number) fail("must be a number");
  double value = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  // from_chars reports underflow, which should give 0, and overflow alike; strtod tells them apart.
  // It stops at the character after the number, which is never part of one.
  if (result.ec != std::errc()) value = std::strtod(text.data(), nullptr);
  const auto narrowed = static_cast<float>(value);
  if (!std::isfinite(narrowed)) fail("is beyond the range of a 32-bit float");
  return narrowed;
}

bool JsonValue::isText() const { return node().kind == JsonNode::Kind::String; }

std::string_view JsonValue::text() const {
  if (!isText()) fail("must be a text");
  return node().text;
}

std::vector<JsonValue> JsonValue::elements() const {
  if (node().kind != JsonNode::Kind::Array) fail("must be a list");
  return children();
}

std::vector<JsonValue> JsonValue::children() const {
  std::vector<JsonValue> all;
  for (std::size_t child = _index + 1; child < node().next; child = _line->_nodes[child].next) {
    all.emplace_back(*_line, child);
  }
  return all;
}

JsonObject::JsonObject(JsonValue value) : _value(value) {
  if (value.node().kind != JsonNode::Kind::Object) value.fail("must be an object");
  _unasked = value.children();
}

std::optional<JsonValue> JsonObject::find(std::string_view key) {
  const auto hasKey = [key](const JsonValue& member) { return member.node().key == key; };
  const auto found = std::find_if(_unasked.begin(), _unasked.end(), hasKey);
  if (found == _unasked.end()) return std::nullopt;
  const JsonValue member = *found;
  const auto next = _unasked.erase(found);
  if (std::any_of(next, _unasked.end(), hasKey)) {
    _value.fail(fmt::format("the key {} is given twice", inQuotes(key)), key);
  }
  return member;
}

JsonValue JsonObject::get(std::string_view key) {
  const auto found = find(key);
  if (!found) _value.fail(fmt::format("lacks the key {}", inQuotes(key)), key);
  return *found;
}

void JsonObject::finish() const {
  if (_unasked.empty()) return;
  const std::string_view key = _unasked.front().node().key;
  _value.fail(fmt::format("the key {} is not known here", inQuotes(key)), key);
}

}  // namespace zorvel
