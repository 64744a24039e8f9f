#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/name_pattern.h"

namespace treectl {

/// The address of a part, an element or a node as it was typed: "/SERVER/NAME/NAME[ELEMENT]".
struct Address {
  std::string text;                    ///< for messages: as typed, control bytes escaped
  NamePattern server;                  ///< of `--server` if that is given
  bool hasServer = false;              ///< whether the server was typed in the address
  std::vector<NamePattern> names;      ///< below the server's root
  std::optional<NamePattern> element;  ///< between the brackets

  /// Whether it may stand for several parts.
  [[nodiscard]] bool hasWildcards() const;

  /// How printed addresses of parts of `name`, a server that matches, begin: "/NAME", or nothing if
  /// the address was typed without a server.
  [[nodiscard]] std::string rootOf(const std::string& name) const;
};

/// Parses an address. With `server`, it begins at that server's root, otherwise with the server's
/// name. Empty names ("//", a "/" at the end) are ignored. An error is a line for the user.
[[nodiscard]] std::variant<Address, std::string> parseAddress(std::string_view text,
                                                              const std::string& server);

/// `text` with `\xHH` for control bytes, for messages.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace treectl
