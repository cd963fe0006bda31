#include "import/scope_table.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <charconv>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "import/csv_reader.hpp"
#include "import/raters_file.hpp"
#include "recording/event_reader.hpp"
#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"
#include "recording/seconds.hpp"
#include "recording/typed_time.hpp"

namespace zorvel {
namespace {

ScopeOfTable::Moment readMoment(const CsvReader& rows, CsvReader::Column column,
                                Time::duration offset) {
  std::string text(rows.text(column));
  std::replace(text.begin(), text.end(), ',', '.');
  if (const auto since = readSeconds(text)) return *since + offset;
  // A whole number would be a date, too, in nanoseconds.
  if (text.find('T') != text.npos) {
    if (const auto date = readDate(text)) return *date;
  }
  rows.fail(column, inQuotes(rows.text(column)) +
                        " is neither seconds, nor like 1:23.5, nor like 2024-05-17T09:30:00Z");
}

/// Whether a recording can hold the name.
bool isReadable(const ScopeOfTable& row) {
  fmt::memory_buffer line;
  appendEvent(line, {Time(), StopRecording{row.person, row.scope}});
  std::string text = fmt::to_string(line);
  try {
    EventReader(MissingTime::Error).read(text);
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

std::vector<ScopeOfTable> readOwn(CsvReader& rows, Time::duration offset) {
  const auto person = rows.get("person");
  const auto scope = rows.get("scope");
  const auto begin = rows.get("begin");
  const auto end = rows.get("end");
  std::vector<ScopeOfTable> scopes;
  while (rows.next()) {
    ScopeOfTable row{rows.lines().lineNumber(),     rows.requiredInteger32(person),
                     std::string(rows.text(scope)), readMoment(rows, begin, offset),
                     readMoment(rows, end, offset), ""};
    if (row.scope.empty()) rows.fail(scope, "must have a name");
    if (!isReadable(row)) rows.fail(scope, inQuotes(row.scope) + " is not UTF-8");
    scopes.push_back(std::move(row));
  }
  if (!rows.cutOffRow().empty()) throw Failure(rows.cutOffRow());
  return scopes;
}

template <typename Names>
std::string listed(const Names& names) {
  std::string list;
  for (const auto& name : names) list += (list.empty() ? "" : ", ") + inQuotes(name);
  return list.empty() ? "none" : list;
}

/// Makes scopes of what raters said.
class AnnotationChoice {
 public:
  AnnotationChoice(const std::string& name, const ChosenAnnotations& chosen)
      : _name(name), _chosen(chosen) {}

  ScopesOfFile scopesOf(const RatersFile& file, Time::duration offset) const {
    requireKnown(file);
    ScopesOfFile made;
    std::map<std::string, std::uint64_t> timeless;
    for (const Annotation& annotation : file.annotations) {
      if (!isChosen(annotation)) continue;
      if (!annotation.begin || !annotation.end) {
        ++timeless[annotation.tier];
        continue;
      }
      if (*annotation.end < *annotation.begin) fail(annotation, "ends before it begins");
      ScopeOfTable scope{annotation.line,
                         personOf(annotation),
                         annotation.text.empty() ? annotation.tier : annotation.text,
                         *annotation.begin + offset,
                         *annotation.end + offset,
                         annotation.tier};
      if (scope.scope.empty()) fail(annotation, "has no name");
      if (!isReadable(scope)) fail(annotation, "is not UTF-8");
      made.scopes.push_back(std::move(scope));
    }
    partNeighbours(made.scopes);
    for (const auto& [tier, count] : timeless) {
      made.leftOut.push_back(fmt::format("tier {}: {} {} no time of {} own", inQuotes(tier), count,
                                         count == 1 ? "annotation has" : "annotations have",
                                         count == 1 ? "its" : "their"));
    }
    return made;
  }

 private:
  [[noreturn]] void fail(const Annotation& annotation, const std::string& message) const {
    const auto seconds = roundDown(annotation.begin.value_or(Time::duration(0)));
    throw Failure(
        fmt::format("{}: {}: {}", printable(_name), placeInTier(annotation.tier, seconds), message),
        {_name, annotation.line, "", 0});
  }

  void requireKnown(const RatersFile& file) const {
    std::set<std::string> tiers;
    std::set<std::string> subjects;
    for (const auto& [tier, subject] : file.tiers) {
      tiers.insert(tier);
      if (!subject.empty()) subjects.insert(subject);
    }
    for (const Annotation& annotation : file.annotations) {
      if (!annotation.subject.empty()) subjects.insert(annotation.subject);
    }
    for (const std::string& tier : _chosen.tiers) {
      if (tiers.count(tier) == 0) failUnknown("tier", tier, listed(tiers));
    }
    for (const auto& [subject, person] : _chosen.subjects) {
      if (subjects.count(subject) > 0) continue;
      failUnknown("subject", subject,
                  subjects.empty() ? "none; --person says whose they are" : listed(subjects));
    }
  }

  [[noreturn]] void failUnknown(std::string_view kind, const std::string& name,
                                const std::string& all) const {
    throw Failure(fmt::format("{}: has no {} {}; those that it has: {}", printable(_name), kind,
                              inQuotes(name), all),
                  {_name, 0, "", 0});
  }

  bool isChosen(const Annotation& annotation) const {
    const auto& tiers = _chosen.tiers;
    if (!tiers.empty() && std::count(tiers.begin(), tiers.end(), annotation.tier) == 0)
      return false;
    if (_chosen.subjects.empty()) return true;
    return annotation.subject.empty() ? _chosen.person.has_value()
                                      : _chosen.subjects.count(annotation.subject) > 0;
  }

  std::int32_t personOf(const Annotation& annotation) const {
    const std::string& subject = annotation.subject;
    if (subject.empty()) {
      if (!_chosen.person) fail(annotation, "names no subject; --person says whose it is");
      return *_chosen.person;
    }
    const auto given = _chosen.subjects.find(subject);
    if (given != _chosen.subjects.end() && given->second) return *given->second;
    const auto number = readPerson(subject);
    if (!number) {
      fail(annotation, fmt::format("is about {0}, not a number; --subject {1}=N gives one",
                                   inQuotes(subject), printable(subject)));
    }
    return *number;
  }

  /// Where one annotation ends and the next of that name begins, that moment belongs to the next.
  static void partNeighbours(std::vector<ScopeOfTable>& scopes) {
    std::map<std::tuple<std::int32_t, std::string, ScopeOfTable::Moment>, ScopeOfTable*> ends;
    for (ScopeOfTable& scope : scopes) {
      if (scope.begin != scope.end) ends[{scope.person, scope.scope, scope.end}] = &scope;
    }
    for (const ScopeOfTable& scope : scopes) {
      const auto neighbour = ends.find({scope.person, scope.scope, scope.begin});
      if (neighbour == ends.end()) continue;
      neighbour->second->end = std::get<Time::duration>(scope.begin) - Time::duration(1);
      ends.erase(neighbour);
    }
  }

  const std::string& _name;
  const ChosenAnnotations& _chosen;
};

}  // namespace

std::optional<std::int32_t> readPerson(std::string_view text) {
  std::int32_t person = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, person);
  return read.ec == std::errc() && read.ptr == end ? std::optional(person) : std::nullopt;
}

ScopesOfFile readScopes(const std::string& file, Time::duration offset,
                        const ChosenAnnotations& chosen, const WaitForInput& waitForInput) {
  const AnnotationChoice choice(file, chosen);
  if (boost::algorithm::iends_with(file, ".eaf")) {
    return choice.scopesOf(readElan(file, waitForInput), offset);
  }
  CsvReader rows(file, waitForInput);
  if (isBoris(rows)) return choice.scopesOf(readBoris(rows), offset);
  if (isBids(rows)) return choice.scopesOf(readBids(rows), offset);
  if (!chosen.tiers.empty() || !chosen.subjects.empty() || chosen.person) {
    throw Failure(printable(file) +
                      ": names its persons and scopes; tiers, subjects and a person "
                      "are chosen in files of ELAN, BORIS and BIDS",
                  {file, 0, "", 0});
  }
  return {readOwn(rows, offset), {}};
}

}  // namespace zorvel
