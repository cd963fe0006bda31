#include "view/service_address.hpp"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <string_view>

#include "recording/failure.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

constexpr std::string_view socketPrefix = "unix:";

bool isPort(std::string_view text) {
  const bool isNumber = text.find_first_not_of("0123456789") == std::string_view::npos;
  return isNumber && !text.empty() && text.size() <= 5 && std::stoi(std::string(text)) <= 65'535;
}

}  // namespace

ServiceAddress readServiceAddress(const std::string& text) {
  if (text.find('#') != std::string::npos) {
    throw Failure("leave out # and what follows; a token is given by --token-file");
  }
  if (boost::starts_with(text, "https://") || boost::starts_with(text, "wss://")) {
    throw Failure(inQuotes(text) +
                  ": there is no TLS here; use the port of the service itself, with http://, or a "
                  "tunnel to it, such as that of ssh -L");
  }
  const Failure wrong(inQuotes(text) +
                      " is not like 127.0.0.1:8642, [::1]:8642, http://robot.local:8642/ or "
                      "unix:PATH");
  if (boost::starts_with(text, socketPrefix)) {
    if (text.size() == socketPrefix.size()) throw wrong;
    return {text.substr(socketPrefix.size()), "", ""};
  }
  std::string_view rest = text;
  std::string_view port;
  for (const std::string_view scheme : {"http://", "ws://"}) {
    if (!boost::starts_with(rest, scheme)) continue;
    rest.remove_prefix(scheme.size());
    const auto path = rest.substr(std::min(rest.find('/'), rest.size()));
    if (!path.empty() && path != "/" && path != "/events") {
      throw Failure(inQuotes(text) + ": its path is not / or /events");
    }
    rest.remove_suffix(path.size());
    port = "80";
  }
  const std::size_t colon = rest.rfind(':');
  if (colon != std::string_view::npos && rest.find(']', colon) == std::string_view::npos) {
    port = rest.substr(colon + 1);
    rest = rest.substr(0, colon);
  }
  const bool isBracketed = boost::starts_with(rest, "[") && boost::ends_with(rest, "]");
  if (isBracketed) rest = rest.substr(1, rest.size() - 2);
  const auto strange = rest.find_first_of(isBracketed ? "/@?[] " : "/@?[] :");
  if (rest.empty() || strange != std::string_view::npos || !isPort(port)) throw wrong;
  return {"", std::string(rest), std::string(port)};
}

}  // namespace zorvel
