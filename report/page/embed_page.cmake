# Puts the parts of the report's page together and writes them as a C++ source.
# Needs PAGE_SOURCES and DYGRAPHS, the folders of the parts, SCRIPTS, the page's scripts in their
# order, and OUTPUT.

file(READ "${PAGE_SOURCES}/page.html" page)
set(scripts "")
foreach(script IN LISTS SCRIPTS)
  file(READ "${PAGE_SOURCES}/${script}" text)
  string(APPEND scripts "${text}\n")
endforeach()
string(REPLACE "{{scripts}}" "${scripts}" page "${page}")
foreach(part "${PAGE_SOURCES}/report.css" "${DYGRAPHS}/dygraph.min.css" "${DYGRAPHS}/dygraph.min.js")
  file(READ "${part}" text)
  # There is no source map beside the page.
  string(REGEX REPLACE "(//|/\\*)# sourceMappingURL=[^\n]*" "" text "${text}")
  cmake_path(GET part FILENAME name)
  string(REPLACE "{{${name}}}" "${text}" page "${page}")
endforeach()

string(HEX "${page}" digits)
string(LENGTH "${digits}" length)
math(EXPR size "${length} / 2")
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${digits}")
file(WRITE "${OUTPUT}" "#include \"report/report_page.hpp\"

#include <array>

namespace zorvel {
namespace {

constexpr std::array<char, ${size}> page{
${bytes}};

}  // namespace

std::string_view reportPage() { return {page.data(), page.size()}; }

}  // namespace zorvel
")
