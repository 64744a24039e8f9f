#include <array>
#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

// Values for snmpd, which asks this program for them line by line (snmpd.conf(5),
// pass_persist): GROUPS tables of VALUES integers each below BASE, as
// BASE.group.item, both counted from 1.
//
//   snmp_values BASE GROUPS VALUES

namespace {

/// Where a value stands; the order of the values is that of their positions.
struct Position {
  std::size_t group;  ///< from 1
  std::size_t item;   ///< from 1
};

std::optional<std::size_t> parseNumber(std::string_view text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc{} && end == text.data() + text.size();
  return whole ? std::optional(number) : std::nullopt;
}

class Values {
 public:
  Values(std::string base, std::size_t groups, std::size_t items)
      : base_(std::move(base)), groups_(groups), items_(items), values_(groups * items) {}

  /// The value of exactly that name.
  [[nodiscard]] std::optional<Position> find(std::string_view oid) const {
    const std::array<std::size_t, 2> asked = parse(oid);
    const bool known = asked[0] >= 1 && asked[0] <= groups_ && asked[1] >= 1 && asked[1] <= items_;
    return known ? std::optional(Position{asked[0], asked[1]}) : std::nullopt;
  }

  /// The first value behind that name.
  [[nodiscard]] std::optional<Position> next(std::string_view oid) const {
    auto [group, item] = parse(oid);
    ++item;
    if (group == 0) {
      group = item = 1;
    }
    if (item > items_) {
      ++group;
      item = 1;
    }
    return group <= groups_ ? std::optional(Position{group, item}) : std::nullopt;
  }

  [[nodiscard]] long& at(Position position) {
    return values_[(position.group - 1) * items_ + position.item - 1];
  }

  void print(Position position) {
    std::cout << base_ << '.' << position.group << '.' << position.item << "\ninteger\n"
              << at(position) << std::endl;
  }

 private:
  /// Group and item of a name below the base; 0 for what it does not say.
  [[nodiscard]] std::array<std::size_t, 2> parse(std::string_view oid) const {
    std::array<std::size_t, 2> numbers{};
    if (!oid.starts_with(base_)) {
      return numbers;
    }
    oid.remove_prefix(base_.size());
    for (std::size_t& number : numbers) {
      if (!oid.starts_with('.')) {
        break;
      }
      oid.remove_prefix(1);
      const std::string_view digits = oid.substr(0, oid.find('.'));
      number = parseNumber(digits).value_or(0);
      oid.remove_prefix(digits.size());
    }
    return numbers;
  }

  std::string base_;
  std::size_t groups_;
  std::size_t items_;
  std::vector<long> values_;
};

/// Answers one command; false at the end of the input.
bool answer(Values& values) {
  std::string command;
  std::string oid;
  // snmpd ends a value to store with an empty line.
  while (command.empty()) {
    if (!std::getline(std::cin, command)) {
      return false;
    }
  }
  if (command == "PING") {
    std::cout << "PONG" << std::endl;
    return true;
  }
  if (!std::getline(std::cin, oid)) {
    return false;
  }
  const auto position = command == "getnext" ? values.next(oid) : values.find(oid);
  std::string stored;
  if (command == "set" && !std::getline(std::cin, stored)) {
    return false;
  }
  if (!position) {
    std::cout << (command == "set" ? "not-writable" : "NONE") << std::endl;
  } else if (command == "set") {
    const auto number = parseNumber(std::string_view(stored).substr(stored.find(' ') + 1));
    if (number) {
      values.at(*position) = static_cast<long>(*number);
    }
    std::cout << (number ? "DONE" : "wrong-value") << std::endl;
  } else {
    values.print(*position);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  const auto groups = argc == 4 ? parseNumber(argv[2]) : std::nullopt;
  const auto items = argc == 4 ? parseNumber(argv[3]) : std::nullopt;
  if (!groups || !items) {
    std::cerr << "usage: snmp_values BASE GROUPS VALUES\n";
    return 2;
  }
  Values values(argv[1], *groups, *items);
  while (answer(values)) {
  }
  return 0;
}
