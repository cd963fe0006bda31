#include "view/token.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr std::size_t shortestToken = 22;
constexpr std::size_t longestToken = 256;
constexpr std::string_view tokenCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

}  // namespace

std::string newToken() {
  std::array<unsigned char, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0) throw systemFailure("random numbers", errno);
  return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string readToken(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "re"),
                                                               std::fclose);
  if (!opened) throw systemFailure(file, errno);
  std::array<char, longestToken + 3> beginning{};  // more than a token and the end of its line
  std::string token(beginning.data(),
                    std::fread(beginning.data(), 1, beginning.size(), opened.get()));
  if (std::ferror(opened.get()) != 0) throw systemFailure(file, errno);
  const auto fail = [&file](std::string_view problem) {
    throw Failure(fmt::format("{}: {}", printable(file), problem), {file, 0, "", 0});
  };
  struct stat status {};
  if (fstat(fileno(opened.get()), &status) != 0 || (status.st_mode & (S_IROTH | S_IWOTH)) != 0) {
    fail("every user of this machine can read or change it: chmod o= prevents that");
  }
  if (!token.empty() && token.back() == '\n') token.pop_back();
  if (!token.empty() && token.back() == '\r') token.pop_back();
  if (token.empty()) fail("holds no token; openssl rand -hex 32 makes one");
  if (token.find_first_not_of(tokenCharacters) != std::string::npos) {
    fail("a token is one line of letters, digits and - . _ ~ only");
  }
  if (token.size() < shortestToken || token.size() > longestToken) {
    fail(fmt::format("a token has {} to {} characters, and this one has {}", shortestToken,
                     longestToken, token.size()));
  }
  return token;
}

bool isToken(std::string_view token, std::string_view offered) {
  if (token.size() != offered.size()) return false;
  unsigned int difference = 0;
  for (std::size_t index = 0; index < token.size(); ++index) {
    difference |= static_cast<unsigned char>(token[index] ^ offered[index]);
  }
  return difference == 0;
}

}  // namespace zorvel
