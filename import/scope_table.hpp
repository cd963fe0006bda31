#ifndef ZORVEL_IMPORT_SCOPE_TABLE_HPP
#define ZORVEL_IMPORT_SCOPE_TABLE_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/line_reader.hpp"
#include "recording/recording_annotation.hpp"

namespace zorvel {

/// Which annotations of raters become scopes, and whose.
struct ChosenAnnotations {
  /// All when there is none.
  std::vector<std::string> tiers;
  /// All when there is none; a number where the subject's name is not that of the person.
  std::map<std::string, std::optional<std::int32_t>> subjects;
  /// The person of annotations that name no subject.
  std::optional<std::int32_t> person;
};

/// The scopes of a file.
struct ScopesOfFile {
  std::vector<ScopeOfTable> scopes;
  /// Why annotations are not among them, a sentence each.
  std::vector<std::string> leftOut;
};

/// Reads the scopes of a table, a CSV file with the columns `person`, `scope`, `begin` and `end`,
/// or what raters made with ELAN, BORIS or for BIDS. Its seconds count from `offset` after second
/// 0. Throws Failure, with file, line and column, and what `waitForInput` throws.
ScopesOfFile readScopes(const std::string& file, Time::duration offset,
                        const ChosenAnnotations& chosen, const WaitForInput& waitForInput);

/// Reads the number of a person; none when it is not a whole number of 32 bits.
std::optional<std::int32_t> readPerson(std::string_view text);

}  // namespace zorvel

#endif
