#ifndef ZORVEL_RECORDING_DISTINCT_FILES_HPP
#define ZORVEL_RECORDING_DISTINCT_FILES_HPP

#include <string>
#include <vector>

namespace zorvel {

/// Throws Failure when a file to be written is also one to be read, under whatever name. "-" is
/// standard input among the inputs and standard output among the outputs. A terminal or a device
/// may be both. To be called before anything is opened.
void requireDistinct(const std::vector<std::string>& inputs,
                     const std::vector<std::string>& outputs);

}  // namespace zorvel

#endif
