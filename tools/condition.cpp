#include "tools/condition.h"

#include <regex.h>

#include <charconv>
#include <cmath>
#include <compare>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace treectl {

namespace {

/// A compiled extended expression.
class Expression {
 public:
  explicit Expression(const std::string& text)
      : result_(::regcomp(&expression_, text.c_str(), REG_EXTENDED | REG_NOSUB)) {}
  ~Expression() {
    if (result_ == 0) {
      ::regfree(&expression_);
    }
  }
  Expression(const Expression&) = delete;
  Expression& operator=(const Expression&) = delete;

  [[nodiscard]] std::optional<std::string> error() const {
    if (result_ == 0) {
      return std::nullopt;
    }
    char text[200];
    ::regerror(result_, &expression_, text, sizeof text);
    return text;
  }

  [[nodiscard]] bool matches(const std::string& text) const {
    return ::regexec(&expression_, text.c_str(), 0, nullptr, 0) == 0;
  }

 private:
  regex_t expression_{};
  int result_;
};

/// An integer of 64 bits, with its sign.
struct Integer {
  bool isNegative = false;
  std::uint64_t size = 0;
};

std::optional<Integer> parseInteger(std::string_view text) {
  Integer integer;
  if (text.starts_with('-')) {
    integer.isNegative = true;
    text.remove_prefix(1);
  } else if (text.starts_with('+')) {
    text.remove_prefix(1);
  }
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, integer.size);
  if (text.empty() || code != std::errc{} || stop != end) {
    return std::nullopt;
  }
  integer.isNegative = integer.isNegative && integer.size != 0;
  return integer;
}

std::strong_ordering compare(const Integer& one, const Integer& other) {
  if (one.isNegative != other.isNegative) {
    return other.isNegative <=> one.isNegative;
  }
  return one.isNegative ? other.size <=> one.size : one.size <=> other.size;
}

std::optional<double> parseFloating(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  return text.empty() || *end != 0 || end != text.c_str() + text.size() ? std::nullopt
                                                                        : std::optional(number);
}

std::string boolText(const std::string& text) {
  return text == "1" ? "true" : text == "0" ? "false" : text;
}

/// Nothing if `other` is no number.
std::optional<std::partial_ordering> compareNumbers(const std::string& one,
                                                    const std::string& other) {
  const auto oneInteger = parseInteger(one);
  const auto otherInteger = parseInteger(other);
  if (oneInteger && otherInteger) {
    return compare(*oneInteger, *otherInteger);
  }
  const auto oneFloating = parseFloating(one);
  const auto otherFloating = parseFloating(other);
  if (!otherFloating) {
    return std::nullopt;
  }
  return oneFloating ? *oneFloating <=> *otherFloating : std::partial_ordering::unordered;
}

bool isNumberType(std::string_view type) {
  return type.starts_with("int") || type.starts_with("uint") || type == "float" || type == "double";
}

}  // namespace

std::optional<std::string> Condition::check(const std::string& op, const std::string* value) {
  if (op == "changed") {
    return value == nullptr ? std::nullopt
                            : std::optional<std::string>("changed: expected no value");
  }
  if (op != "==" && op != "!=" && op != "<" && op != "<=" && op != ">" && op != ">=" &&
      op != "=~") {
    return "\"" + op + "\": expected ==, !=, <, <=, >, >=, =~ or changed";
  }
  if (value == nullptr) {
    return op + ": missing value";
  }
  if (op == "=~") {
    if (const auto error = Expression(*value).error()) {
      return "=~: " + *error;
    }
  }
  return std::nullopt;
}

Condition::Condition(std::string op, std::string value)
    : op_(std::move(op)), value_(std::move(value)) {}

std::optional<bool> Condition::holds(const std::string& text, std::string_view type) const {
  if (op_ == "=~") {
    return Expression(value_).matches(text);
  }
  std::partial_ordering order = text <=> value_;
  if (type == "bool") {
    order = text <=> boolText(value_);
  } else if (isNumberType(type)) {
    const auto numbers = compareNumbers(text, value_);
    if (!numbers) {
      return std::nullopt;
    }
    order = *numbers;
  }
  if (op_ == "==") {
    return std::is_eq(order);
  }
  if (op_ == "!=") {
    return std::is_neq(order);
  }
  if (op_ == "<") {
    return std::is_lt(order);
  }
  if (op_ == "<=") {
    return std::is_lteq(order);
  }
  return op_ == ">" ? std::is_gt(order) : std::is_gteq(order);
}

}  // namespace treectl
