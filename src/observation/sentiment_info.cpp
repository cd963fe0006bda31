#include "zv/sentiment_info.hpp"

#include <ostream>

namespace ZV {

std::ostream& operator<<(std::ostream& stream, const SentimentInfo& info) {
  return stream << "SentimentInfo:" << std::endl
                << "\t - author : \t" << info.author << std::endl
                << "\t - sentiment : \t" << info.sentiment << std::endl
                << "\t - sentimentStrengh : \t" << std::to_string(info.sentimentStrengh)
                << std::endl
                << "\t - recever : \t" << info.recever << std::endl
                << "\t - from : \t" << info.from << std::endl;
}

}  // namespace ZV
