#include "tools/address.h"

#include <algorithm>

#include "tools/utf8.h"

namespace treectl {

namespace {

/// The position of the first of `bytes` in `text` from `at` on that no backslash escapes;
/// `text.size()` if there is none.
std::size_t findUnescaped(std::string_view text, std::string_view bytes, std::size_t at) {
  while (at < text.size() && bytes.find(text[at]) == std::string_view::npos) {
    at += text[at] == '\\' ? 2 : 1;
  }
  return std::min(at, text.size());
}

/// A pattern of exactly these bytes.
NamePattern literal(const std::string& bytes) {
  std::string escaped;
  appendEscapedName(escaped, bytes);
  return NamePattern(escaped);
}

/// Moves the element from the end of `text` to `address`. False if there is a "[" without its "]"
/// at the end.
bool splitElement(std::string_view& text, Address& address) {
  const std::size_t open = findUnescaped(text, "[", 0);
  if (open == text.size()) {
    return true;
  }
  if (findUnescaped(text, "]", open + 1) != text.size() - 1) {
    return false;
  }
  address.element = NamePattern(text.substr(open + 1, text.size() - open - 2));
  text = text.substr(0, open);
  return true;
}

}  // namespace

bool Address::hasWildcards() const {
  return server.hasWildcards() || (element && element->hasWildcards()) ||
         std::any_of(names.begin(), names.end(),
                     [](const NamePattern& name) { return name.hasWildcards(); });
}

std::string Address::rootOf(const std::string& name) const {
  std::string root;
  if (hasServer) {
    root = "/";
    appendEscapedName(root, name);
  }
  return root;
}

std::string printable(std::string_view text) {
  std::string out;
  for (const char byte : text) {
    if (isControlByte(byte)) {
      appendHexEscape(out, byte);
    } else {
      out += byte;
    }
  }
  return out;
}

std::variant<Address, std::string> parseAddress(std::string_view text, const std::string& server) {
  Address address;
  address.text = printable(text);
  std::string_view rest = text;
  if (!splitElement(rest, address)) {
    return "\"" + address.text + "\": expected \"]\" at the end, after \"[\"";
  }
  if (!server.empty()) {
    address.server = literal(server);
  }
  for (std::size_t at = 0; at < rest.size();) {
    const std::size_t end = findUnescaped(rest, "/", at);
    const std::string_view name = rest.substr(at, end - at);
    at = end + 1;
    if (name.empty()) {
      continue;
    }
    if (address.hasServer || !server.empty()) {
      address.names.emplace_back(name);
    } else {
      address.server = NamePattern(name);
      address.hasServer = true;
    }
  }
  if (!address.hasServer && server.empty()) {
    return "\"" + address.text + "\": expected an address that begins with a server's name";
  }
  return address;
}

}  // namespace treectl
