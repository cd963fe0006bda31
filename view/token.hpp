#ifndef ZORVEL_VIEW_TOKEN_HPP
#define ZORVEL_VIEW_TOKEN_HPP

#include <string>
#include <string_view>

namespace zorvel {

/// A token that nobody can guess: 128 bits of the system's random source, as hexadecimal digits.
std::string newToken();

/// The token in the file. Throws Failure when every user of the machine can read or write the file,
/// or when it holds anything but one token: 22 to 256 letters, digits and - . _ ~, which need no
/// escapes in a URL or a header. 22 of them can hold 128 bits. No message contains the token.
std::string readToken(const std::string& file);

/// Compares in a time that depends on the token's length alone.
bool isToken(std::string_view token, std::string_view offered);

}  // namespace zorvel

#endif
