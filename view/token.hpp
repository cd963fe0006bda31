#ifndef ZORVEL_VIEW_TOKEN_HPP
#define ZORVEL_VIEW_TOKEN_HPP

#include <string>
#include <string_view>

namespace zorvel {

/// Nobody can guess it: 128 bits of the system's random source, in hexadecimal digits.
std::string newToken();

/// The token in the file. Throws Failure when every user of the machine can read or write the file,
/// or when it does not hold one token alone: 22 to 256 letters, digits and - . _ ~, which can stand
/// in a URL and in a header as they are. 22 of them can hold 128 bits. No text names the token.
std::string readToken(const std::string& file);

/// Compares in a time that depends on nothing of the token but its length.
bool isToken(std::string_view token, std::string_view offered);

}  // namespace zorvel

#endif
