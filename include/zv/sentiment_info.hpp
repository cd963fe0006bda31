#ifndef ZV_SENTIMENT_INFO_HPP
#define ZV_SENTIMENT_INFO_HPP

#include <cstdint>
#include <iosfwd>
#include <string>

#include "zv/export.hpp"

namespace ZV {

/// Who expressed which sentiment, how strongly, to whom, and where it was read. The estimator does
/// not use it; it is here for hosts to pass on and print.
///
/// Two members carry a spelling that other modules already know: `sentimentStrengh`, `recever`.
///
/// Thread safety: that of a plain value.
struct ZV_API SentimentInfo {
  std::string author;                 ///< who expressed it
  std::string sentiment;              ///< what was expressed, in the host's words
  std::int32_t sentimentStrengh = 0;  ///< how strongly, on the host's scale
  std::string recever;                ///< to whom
  std::string from;                   ///< where it was read
};

/// Writes a title line and a line for each member; every line ends with a newline and a flush.
ZV_API std::ostream& operator<<(std::ostream& stream, const SentimentInfo& info);

}  // namespace ZV

#endif
