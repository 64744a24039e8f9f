#include "gateway/link/broker_address.h"

#include <sys/un.h>

#include <charconv>
#include <cstddef>

namespace modelgate {

namespace {

constexpr std::size_t maxSocketPath = sizeof(sockaddr_un{}.sun_path) - 1;
constexpr std::size_t maxHost = 253;
constexpr int plainPort = 1883;
constexpr int tlsPort = 8883;

/// Whether `host` can be a name or an address: what a URL or a resolver would misread is refused.
bool isHost(std::string_view host, bool bracketed) {
  if (host.empty() || host.size() > maxHost) {
    return false;
  }
  constexpr std::string_view others = ".-_";
  for (const char character : host) {
    const bool letter = (character >= 'a' && character <= 'z') ||
                        (character >= 'A' && character <= 'Z') ||
                        (character >= '0' && character <= '9');
    const bool other = bracketed ? character == ':' || character == '.' || character == '%'
                                 : others.find(character) != std::string_view::npos;
    if (!letter && !other) {
      return false;
    }
  }
  return bracketed || host.front() != '-';
}

bool parsePort(std::string_view text, int& port) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && stop == end && port >= 1 && port <= 65535;
}

/// `text` is "HOST", "HOST:PORT" or the same with "[HOST]".
std::optional<BrokerAddress> parseNetwork(std::string_view text, bool tls, std::string& error) {
  BrokerAddress address;
  address.tls = tls;
  address.port = tls ? tlsPort : plainPort;
  // A slash at the end is what some write after every host.
  if (text.ends_with('/')) {
    text.remove_suffix(1);
  }
  const bool bracketed = text.starts_with('[');
  const std::size_t close = bracketed ? text.find(']') : text.find(':');
  if (bracketed && close == std::string_view::npos) {
    error = "missing \"]\"";
    return std::nullopt;
  }
  const std::string_view host = bracketed ? text.substr(1, close - 1) : text.substr(0, close);
  if (!isHost(host, bracketed)) {
    error = "expected a host name or address";
    return std::nullopt;
  }
  address.host = host;
  std::string_view rest = close == std::string_view::npos ? std::string_view() : text.substr(close);
  if (bracketed) {
    rest.remove_prefix(1);
  }
  if (!rest.empty() && (rest.front() != ':' || !parsePort(rest.substr(1), address.port))) {
    error = "expected a port from 1 to 65535 after the host";
    return std::nullopt;
  }
  return address;
}

}  // namespace

std::optional<BrokerAddress> parseBroker(std::string_view url, std::string& error) {
  constexpr std::string_view plain = "mqtt://";
  constexpr std::string_view tls = "mqtts://";
  constexpr std::string_view local = "unix:";
  if (url.starts_with(plain)) {
    return parseNetwork(url.substr(plain.size()), false, error);
  }
  if (url.starts_with(tls)) {
    return parseNetwork(url.substr(tls.size()), true, error);
  }
  if (!url.starts_with(local)) {
    error = "expected mqtt://HOST[:PORT], mqtts://HOST[:PORT] or unix:/PATH";
    return std::nullopt;
  }
  const std::string_view path = url.substr(local.size());
  if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) {
    error = "expected an absolute path after \"unix:\"";
    return std::nullopt;
  }
  if (path.size() > maxSocketPath) {
    error = "the path is longer than " + std::to_string(maxSocketPath) + " bytes";
    return std::nullopt;
  }
  BrokerAddress address;
  address.path = path;
  return address;
}

}  // namespace modelgate
