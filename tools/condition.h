#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace treectl {

/// What `wait` waits for: an operator and a value.
class Condition {
 public:
  /// An error is a line for the user.
  [[nodiscard]] static std::optional<std::string> check(const std::string& op,
                                                        const std::string* value);

  /// `op` and `value` have been checked. `value` is ignored for `changed`.
  Condition(std::string op, std::string value);

  /// Whether `text`, the value of a part of type `type`, fulfils it; numbers are compared by value,
  /// other texts by bytes. Nothing if the value to compare with is no number and the part's is.
  [[nodiscard]] std::optional<bool> holds(const std::string& text, std::string_view type) const;

  [[nodiscard]] bool isChange() const { return op_ == "changed"; }

 private:
  std::string op_;
  std::string value_;
};

}  // namespace treectl
