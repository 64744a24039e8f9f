#include "tests/support/leak_check.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "tests/support/port_name.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;

std::set<std::string> newIn(const std::set<std::string>& after,
                            const std::set<std::string>& before) {
  std::set<std::string> added;
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                      std::inserter(added, added.end()));
  return added;
}

std::string joined(const std::set<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += "\n  " + line;
  }
  return text;
}

std::set<std::string> listDescriptors(const std::string& directory) {
  std::set<std::string> result;
  for (const auto& entry : fs::directory_iterator(directory)) {
    std::error_code error;
    const fs::path target = fs::read_symlink(entry.path(), error);
    // The descriptor of the listing itself is not counted.
    if (!error && target.string().find("/fd") == std::string::npos) {
      result.insert(entry.path().filename().string() + " -> " + target.string());
    }
  }
  return result;
}

}  // namespace

std::set<std::string> openDescriptors() {
  return listDescriptors("/proc/self/fd");
}

std::set<std::string> openDescriptorsOf(int pid) {
  return listDescriptors("/proc/" + std::to_string(pid) + "/fd");
}

std::set<std::string> ownLeftovers() {
  std::set<std::string> result;
  for (const auto& entry : fs::directory_iterator("/tmp")) {
    const std::string name = entry.path().filename().string();
    if (name.find(portNameMark()) != std::string::npos) {
      result.insert(name);
    }
  }
  return result;
}

void LeakCheckListener::OnTestStart(const testing::TestInfo&) {
  descriptorsBefore_ = openDescriptors();
  leftoversBefore_ = ownLeftovers();
}

void LeakCheckListener::OnTestEnd(const testing::TestInfo&) {
  const auto descriptors = newIn(openDescriptors(), descriptorsBefore_);
  const auto leftovers = newIn(ownLeftovers(), leftoversBefore_);
  EXPECT_TRUE(descriptors.empty()) << "left open:" << joined(descriptors);
  EXPECT_TRUE(leftovers.empty()) << "left in /tmp:" << joined(leftovers);
}

}  // namespace test_support
