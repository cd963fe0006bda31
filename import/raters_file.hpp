#ifndef ZORVEL_IMPORT_RATERS_FILE_HPP
#define ZORVEL_IMPORT_RATERS_FILE_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "import/csv_reader.hpp"
#include "recording/event.hpp"

namespace zorvel {

/// What a rater said of a stretch of a film.
struct Annotation {
  std::uint64_t line;
  /// ELAN's tier; elsewhere, what was said.
  std::string tier;
  /// Whom it is about; empty where that is not said.
  std::string subject;
  std::string text;
  /// Since the film's second 0. None for an annotation without a time of its own.
  std::optional<Time::duration> begin;
  std::optional<Time::duration> end;
};

/// What raters made with their programs.
struct RatersFile {
  std::vector<Annotation> annotations;
  /// Whom each tier is about, those without annotations included.
  std::map<std::string, std::string> tiers;
};

/// Reads a file of ELAN (.eaf). Throws Failure, with file and line, and what `waitForInput` throws.
RatersFile readElan(const std::string& file, const WaitForInput& waitForInput);

// Tables, after the line with their names. They throw as CsvReader does.

/// What BORIS exports: aggregated events, with a row for each, or tabular ones, with a row for each
/// begin and end.
bool isBoris(const CsvReader& rows);
RatersFile readBoris(CsvReader& rows);

/// The `events.tsv` of BIDS.
bool isBids(const CsvReader& rows);
RatersFile readBids(CsvReader& rows);

}  // namespace zorvel

#endif
