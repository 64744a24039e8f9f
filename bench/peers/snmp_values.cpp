#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

// The values of snmpd, which requests them from this program in lines of text (snmpd.conf(5),
// pass_persist): GROUPS tables of VALUES integers each, with the names BASE.group.item, both
// numbers counted from 1.
//
//   snmp_values BASE GROUPS VALUES

namespace {

class Values {
 public:
  Values(std::string base, std::size_t groups, std::size_t items)
      : base_(std::move(base)), items_(items), values_(groups * items) {}

  /// Handles one request; false at the end of the input.
  bool handleRequest() {
    std::string command;
    // snmpd sends an empty line after a value to store.
    while (command.empty()) {
      if (!std::getline(std::cin, command)) {
        return false;
      }
    }
    if (command == "PING") {
      std::cout << "PONG" << std::endl;
      return true;
    }
    std::string name;
    std::string stored;
    if (!std::getline(std::cin, name) || (command == "set" && !std::getline(std::cin, stored))) {
      return false;
    }
    const std::size_t index = command == "getnext" ? indexAfter(name) : indexOf(name);
    if (command == "set") {
      store(index, stored);
    } else {
      print(index);
    }
    return true;
  }

 private:
  /// The number of a group and of an item in it; 0 if the name does not have it.
  struct Numbers {
    std::size_t group = 0;
    std::size_t item = 0;
  };

  [[nodiscard]] Numbers parse(const std::string& name) const {
    Numbers numbers;
    if (name.starts_with(base_) && name[base_.size()] == '.') {
      char* end = nullptr;
      numbers.group = std::strtoul(name.c_str() + base_.size() + 1, &end, 10);
      numbers.item = *end == '.' ? std::strtoul(end + 1, nullptr, 10) : 0;
    }
    return numbers;
  }

  /// The index of the value with that name; the number of values if there is none.
  [[nodiscard]] std::size_t indexOf(const std::string& name) const {
    const auto [group, item] = parse(name);
    return group == 0 || item == 0 || item > items_ ? values_.size()
                                                    : (group - 1) * items_ + item - 1;
  }

  /// The index of the first value after that name; the number of values if there is none.
  [[nodiscard]] std::size_t indexAfter(const std::string& name) const {
    const auto [group, item] = parse(name);
    return group == 0 ? 0 : (group - 1) * items_ + std::min(item, items_);
  }

  void store(std::size_t index, const std::string& typed) {
    const std::size_t space = typed.find(' ');
    if (index >= values_.size()) {
      std::cout << "not-writable" << std::endl;
    } else if (!typed.starts_with("integer ")) {
      std::cout << "wrong-type" << std::endl;
    } else {
      values_[index] = std::strtol(typed.c_str() + space, nullptr, 10);
      std::cout << "DONE" << std::endl;
    }
  }

  void print(std::size_t index) const {
    if (index >= values_.size()) {
      std::cout << "NONE" << std::endl;
    } else {
      std::cout << base_ << '.' << index / items_ + 1 << '.' << index % items_ + 1 << "\ninteger\n"
                << values_[index] << std::endl;
    }
  }

  std::string base_;
  std::size_t items_;
  std::vector<long> values_;
};

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  if (argc != 4) {
    std::cerr << "usage: snmp_values BASE GROUPS VALUES\n";
    return 2;
  }
  Values values(argv[1], std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10));
  while (values.handleRequest()) {
  }
  return 0;
}
