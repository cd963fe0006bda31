#ifndef ZORVEL_REPORT_REPORT_PAGE_HPP
#define ZORVEL_REPORT_REPORT_PAGE_HPP

#include <string_view>

namespace zorvel {

/// The whole page, with reportPageHole where the recording's data belong.
std::string_view reportPage();

constexpr std::string_view reportPageHole = "{{recording}}";

/// The page of several recordings, with overviewPageHole where the elements with their data belong.
std::string_view overviewPage();

constexpr std::string_view overviewPageHole = "{{recordings}}";

}  // namespace zorvel

#endif
