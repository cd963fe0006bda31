#include "view/person_ids.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <variant>

#include "recording/failure.hpp"
#include "recording/json_line.hpp"
#include "recording/json_writer.hpp"
#include "view/token.hpp"

namespace zorvel {
namespace {

// The first id for people of pages, beyond those that a perception is likely to use.
constexpr std::int32_t firstGranted = 1'000'000;
constexpr std::int32_t mostGranted = 1'000;

}  // namespace

void PersonIds::requireFree(const Sender& sender, const Event& event) const {
  if (const auto person = personOf(event)) requireFree(sender, *person);
  if (const auto* rename = std::get_if<Rename>(&event.what)) requireFree(sender, rename->to);
}

void PersonIds::requireFree(const Sender& sender, std::int32_t person) const {
  const Sender* const owner = ownerOf(person);
  if (owner != nullptr && owner != &sender) {
    throw Failure(fmt::format("person {} belongs to {}", person, owner->name));
  }
}

/// None for an id that nobody has.
const Sender* PersonIds::ownerOf(std::int32_t person) const {
  const auto range = std::find_if(_ranges.begin(), _ranges.end(), [&](const Range& each) {
    return person >= each.first && person - each.first < each.count;
  });
  if (range != _ranges.end()) return range->owner;
  const auto owned = _owners.find(person);
  return owned == _owners.end() ? nullptr : owned->second;
}

void PersonIds::claim(const Sender& sender, const Event& event) {
  if (std::holds_alternative<Remove>(event.what)) return;
  const auto* rename = std::get_if<Rename>(&event.what);
  const auto person = rename == nullptr ? personOf(event) : std::optional(rename->to);
  if (person && ownerOf(*person) == nullptr) _owners.emplace(*person, &sender);
}

void PersonIds::release(const Sender& sender) {
  for (auto owned = _owners.begin(); owned != _owners.end();) {
    owned = owned->second == &sender ? _owners.erase(owned) : std::next(owned);
  }
  dropRanges(sender);
}

void PersonIds::dropRanges(const Sender& sender) {
  const auto isOwn = [&sender](const Range& range) { return range.owner == &sender; };
  _ranges.erase(std::remove_if(_ranges.begin(), _ranges.end(), isOwn), _ranges.end());
}

/// Whether none of its ids belongs to anybody.
bool PersonIds::isFree(const Range& range) const {
  const auto owned = _owners.lower_bound(range.first);
  if (owned != _owners.end() && owned->first - range.first < range.count) return false;
  return std::none_of(_ranges.begin(), _ranges.end(), [&range](const Range& other) {
    return range.first < other.first + other.count && other.first < range.first + range.count;
  });
}

/// Gives the sender the ids that it had before, if they are free now or if the key shows that they
/// are its own, and else others.
std::string PersonIds::grant(const Sender& sender, std::int32_t count,
                             std::optional<std::int32_t> before, std::string_view key,
                             const Newest& present) {
  const auto known = std::find_if(_ranges.begin(), _ranges.end(), [&](const Range& range) {
    return range.first == before && range.count == count && range.key == key;
  });
  if (known != _ranges.end()) release(*known->owner);
  dropRanges(sender);
  Range range{before.value_or(firstGranted), count, &sender, newToken()};
  if (!before || !isFree(range)) {
    const auto isTaken = [&] {
      const auto person = present.people.lower_bound(range.first);
      return !isFree(range) ||
             (person != present.people.end() && person->first - range.first < range.count);
    };
    for (range.first = firstGranted; isTaken();) range.first += count;
  }
  _ranges.push_back(range);
  return jsonLine([&](JsonLineWriter& json) {
    json.object("people", [&] {
      json.member("first", range.first);
      json.member("count", range.count);
      json.member("key", range.key);
    });
  });
}

std::string PersonIds::answerRequest(const Sender& sender, std::string line,
                                     const Newest& present) {
  JsonLine json;
  JsonObject object(json.parse(line));
  const auto request = object.find("request");
  if (!request) return "";
  if (request->text() != "people") request->fail("must be people");
  const auto count = object.get("count").integer(1, mostGranted);
  const auto first = object.find("first");
  std::optional<std::int32_t> before;
  if (first) {
    before = static_cast<std::int32_t>(
        first->integer(firstGranted, std::numeric_limits<std::int32_t>::max() - mostGranted));
  }
  const auto key = object.find("key");
  const std::string_view keyText = key ? key->text() : "";
  object.finish();
  return grant(sender, static_cast<std::int32_t>(count), before, keyText, present);
}

}  // namespace zorvel
