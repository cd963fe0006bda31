#include "export/elan_tiers.hpp"

#include <fmt/chrono.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#include "recording/failure.hpp"
#include "recording/seconds.hpp"

namespace zorvel {

namespace {

/// The text, escaped for a value or an attribute. What XML cannot hold becomes U+FFFD.
std::string escaped(std::string_view text) {
  constexpr std::string_view replacement = "\xEF\xBF\xBD";
  std::string xml;
  for (std::size_t place = 0; place < text.size(); ++place) {
    const char character = text[place];
    const std::string_view three = text.substr(place, 3);
    if (character == '&') {
      xml += "&amp;";
    } else if (character == '<') {
      xml += "&lt;";
    } else if (character == '>') {
      xml += "&gt;";
    } else if (character == '"') {
      xml += "&quot;";
    } else if (character == '\t' || character == '\n' || character == '\r') {
      xml += fmt::format("&#{};", static_cast<int>(character));
    } else if (static_cast<unsigned char>(character) < 0x20) {
      xml += replacement;
    } else if (three == "\xEF\xBF\xBE" || three == "\xEF\xBF\xBF") {
      xml += replacement;
      place += 2;
    } else {
      xml += character;
    }
  }
  return xml;
}

/// A path, escaped for a URL.
std::string percentEncoded(const std::string& path) {
  std::string url;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isPlain =
        byte < 0x80 && (std::isalnum(byte) != 0 ||
                        std::string_view("-._~/").find(character) != std::string_view::npos);
    url += isPlain ? std::string(1, character) : fmt::format("%{:02X}", byte);
  }
  return url;
}

std::string_view mimeType(const std::string& film) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 8> types{{
      {".avi", "video/x-msvideo"},
      {".mkv", "video/x-matroska"},
      {".mov", "video/quicktime"},
      {".mp4", "video/mp4"},
      {".mpeg", "video/mpeg"},
      {".mpg", "video/mpeg"},
      {".wav", "audio/x-wav"},
      {".webm", "video/webm"},
  }};
  std::string ending = std::filesystem::path(film).extension();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  const auto* const found = std::find_if(types.begin(), types.end(),
                                         [&](const auto& type) { return type.first == ending; });
  return found == types.end() ? "unknown" : found->second;
}

std::string mediaDescriptor(const std::string& film, const std::string& output) {
  namespace fs = std::filesystem;
  const fs::path path = fs::absolute(film).lexically_normal();
  std::string relative;
  if (output != "-") {
    const fs::path folder = fs::absolute(output).lexically_normal().parent_path();
    relative = fmt::format(" RELATIVE_MEDIA_URL=\"./{}\"",
                           escaped(percentEncoded(path.lexically_relative(folder).string())));
  }
  return fmt::format("        <MEDIA_DESCRIPTOR MEDIA_URL=\"file://{}\"{} MIME_TYPE=\"{}\"/>\n",
                     escaped(percentEncoded(path.string())), relative, mimeType(film));
}

std::string isoSeconds(Time time) {
  const auto whole = boost::chrono::duration_cast<boost::chrono::seconds>(time.time_since_epoch());
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(whole.count()));
}

std::string moodName(int mood) { return mood > 0 ? "positive" : mood < 0 ? "negative" : "neutral"; }

}  // namespace

void ElanTiers::add(const Row& row) {
  if (const auto* scope = std::get_if<ScopeRow>(&row)) {
    if (!scope->begin) return;
    _persons[scope->person].scopes.push_back({*scope->begin, scope->end, scope->scope});
  }
  const auto* state = std::get_if<StateRow>(&row);
  if (state == nullptr) return;
  Person& person = _persons[state->person];
  const bool isVisit = std::exchange(person.visit, state->visit) == state->visit;
  if (!isVisit) {
    person.visits.push_back({state->since, state->since, std::to_string(state->visit)});
  }
  person.visits.back().end = state->since;
  // A mood lasts until the cycle that has another.
  if (person.hasMood && isVisit) person.moods.back().end = state->since;
  const bool isKnown = state->isKnown[0];
  const std::string mood = moodName(state->mood);
  if (isKnown && !(person.hasMood && isVisit && person.moods.back().value == mood)) {
    person.moods.push_back({state->since, state->since, mood});
  }
  person.hasMood = isKnown;
}

/// In the order of time, without those that end before second 0.
std::vector<ElanTiers::Annotation> ElanTiers::annotationsOf(const std::vector<Stretch>& stretches,
                                                            std::size_t& leftOut) {
  std::vector<Annotation> annotations;
  for (const Stretch& stretch : stretches) {
    // Outwards, so that the same cycles are within when it is read back.
    const std::int64_t begin = roundDown(stretch.begin).count();
    const std::int64_t end = std::max<std::int64_t>(roundUp(stretch.end).count(), begin + 1);
    if (end <= 0) {
      ++leftOut;
    } else {
      annotations.push_back({std::max<std::int64_t>(begin, 0), end, &stretch.value});
    }
  }
  std::stable_sort(annotations.begin(), annotations.end(),
                   [](const auto& left, const auto& right) { return left.begin < right.begin; });
  return annotations;
}

/// Annotations that overlap go into tiers of their own.
void ElanTiers::addTiers(std::vector<Tier>& tiers, std::int32_t person, std::string_view kind,
                         const std::vector<Annotation>& annotations) {
  std::vector<Tier> own;
  for (const Annotation& annotation : annotations) {
    const auto free = std::find_if(own.begin(), own.end(), [&](const Tier& tier) {
      return tier.annotations.back().end <= annotation.begin;
    });
    if (free != own.end()) {
      free->annotations.push_back(annotation);
      continue;
    }
    const std::string number = own.empty() ? "" : fmt::format(" ({})", own.size() + 1);
    own.push_back({fmt::format("{} of person {}{}", kind, person, number), person, {annotation}});
  }
  std::move(own.begin(), own.end(), std::back_inserter(tiers));
}

std::vector<ElanTiers::Tier> ElanTiers::tiers(std::size_t& leftOut) const {
  std::vector<Tier> all;
  for (const auto& [id, person] : _persons) {
    addTiers(all, id, "scopes", annotationsOf(person.scopes, leftOut));
    for (const auto& [kind, stretches] :
         {std::pair("mood", &person.moods), std::pair("visits", &person.visits)}) {
      std::vector<Annotation> annotations = annotationsOf(*stretches, leftOut);
      // One ends where the next begins, even when both are rounded.
      for (std::size_t next = 1; next < annotations.size(); ++next) {
        Annotation& last = annotations[next - 1];
        annotations[next].begin = std::max(annotations[next].begin, last.begin + 1);
        last.end = std::min(last.end, annotations[next].begin);
      }
      addTiers(all, id, kind, annotations);
    }
  }
  return all;
}

/// By time; at one time, ends come before starts.
ElanTiers::TimeSlots ElanTiers::timeSlots(const std::vector<Tier>& tiers) {
  std::vector<std::tuple<std::int64_t, bool, std::size_t>> edges;
  std::size_t count = 0;
  for (const Tier& tier : tiers) {
    for (const Annotation& annotation : tier.annotations) {
      if (annotation.end > std::numeric_limits<std::uint32_t>::max()) {
        throw Failure("the recording is too long for ELAN, whose time ends after 49 days");
      }
      edges.emplace_back(annotation.begin, true, count);
      edges.emplace_back(annotation.end, false, count);
      ++count;
    }
  }
  std::sort(edges.begin(), edges.end());
  TimeSlots slots;
  slots.ofAnnotations.resize(count);
  for (const auto& [time, isBegin, annotation] : edges) {
    slots.times.push_back(time);
    slots.ofAnnotations[annotation][isBegin ? 0 : 1] = slots.times.size();
  }
  return slots;
}

std::size_t ElanTiers::write(fmt::memory_buffer& text, Time secondZero, const std::string& film,
                             const std::string& output) const {
  std::size_t leftOut = 0;
  const std::vector<Tier> all = tiers(leftOut);
  const TimeSlots slots = timeSlots(all);

  const auto append = [&text](fmt::string_view format, const auto&... values) {
    fmt::format_to(std::back_inserter(text), fmt::runtime(format), values...);
  };
  // Not the time of writing, so that the same recording gives the same bytes.
  append(R"(<?xml version="1.0" encoding="UTF-8"?>
<ANNOTATION_DOCUMENT AUTHOR="zorvel" DATE="{}" FORMAT="3.0" VERSION="3.0" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:noNamespaceSchemaLocation="http://www.mpi.nl/tools/elan/EAFv3.0.xsd">
    <HEADER MEDIA_FILE="" TIME_UNITS="milliseconds">
{}        <PROPERTY NAME="lastUsedAnnotationId">{}</PROPERTY>
    </HEADER>
    <TIME_ORDER>
)",
         isoSeconds(secondZero), film.empty() ? "" : mediaDescriptor(film, output),
         slots.ofAnnotations.size());
  for (std::size_t slot = 0; slot < slots.times.size(); ++slot) {
    append("        <TIME_SLOT TIME_SLOT_ID=\"ts{}\" TIME_VALUE=\"{}\"/>\n", slot + 1,
           slots.times[slot]);
  }
  append("    </TIME_ORDER>\n");
  std::size_t number = 0;
  for (const Tier& tier : all) {
    append("    <TIER LINGUISTIC_TYPE_REF=\"default-lt\" PARTICIPANT=\"{}\" TIER_ID=\"{}\">\n",
           tier.person, tier.name);
    for (const Annotation& annotation : tier.annotations) {
      append(R"(        <ANNOTATION>
            <ALIGNABLE_ANNOTATION ANNOTATION_ID="a{}" TIME_SLOT_REF1="ts{}" TIME_SLOT_REF2="ts{}">
                <ANNOTATION_VALUE>{}</ANNOTATION_VALUE>
            </ALIGNABLE_ANNOTATION>
        </ANNOTATION>
)",
             number + 1, slots.ofAnnotations[number][0], slots.ofAnnotations[number][1],
             escaped(*annotation.value));
      ++number;
    }
    append("    </TIER>\n");
  }
  append(
      R"(    <LINGUISTIC_TYPE GRAPHIC_REFERENCES="false" LINGUISTIC_TYPE_ID="default-lt" TIME_ALIGNABLE="true"/>
</ANNOTATION_DOCUMENT>
)");
  return leftOut;
}

}  // namespace zorvel
