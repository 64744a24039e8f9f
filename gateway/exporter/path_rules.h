#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace modelgate {

/// Subtrees that a person has named: "/path" of each server, "/S/path" of the server S, or "/" for
/// everything. Levels are compared whole. Constant after construction.
class PathRules {
 public:
  /// `isPathRule` is true of each.
  explicit PathRules(std::span<const std::string> rules);

  [[nodiscard]] bool isEmpty() const { return rules_.empty(); }

  /// Whether the part with these names along its chain, or a node above it, is named.
  [[nodiscard]] bool allow(std::string_view server, std::span<const std::string_view> names) const;

 private:
  std::vector<std::vector<std::string>> rules_;  ///< the levels of each
};

/// Whether `text` may be a rule: it begins with "/", and has no empty level and no control
/// characters. A "/" at the end is ignored.
[[nodiscard]] bool isPathRule(std::string_view text);

}  // namespace modelgate
