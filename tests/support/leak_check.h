#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>

/// What no test may leave behind; `main` checks it around every test.
namespace test_support {

/// The open descriptors of this process, each as "number -> target".
std::set<std::string> openDescriptors();

/// The open descriptors of process `pid`, in the same form.
std::set<std::string> openDescriptorsOf(int pid);

/// The names in /tmp that contain the port names of this process.
std::set<std::string> ownLeftovers();

/// Fails a test if more descriptors are open at its end than at its start, or if more
/// files of this process are in /tmp.
class LeakCheckListener : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo& test) override;
  void OnTestEnd(const testing::TestInfo& test) override;

 private:
  std::set<std::string> descriptorsBefore_;
  std::set<std::string> leftoversBefore_;
};

}  // namespace test_support
