#ifndef ZORVEL_VIEW_PAGE_HPP
#define ZORVEL_VIEW_PAGE_HPP

#include <string_view>

namespace zorvel {

/// The live page, as one file.
std::string_view viewPage();

/// Its Content-Security-Policy, which allows its own scripts and styles, by their hashes, and
/// connections to its server.
std::string_view viewPagePolicy();

}  // namespace zorvel

#endif
