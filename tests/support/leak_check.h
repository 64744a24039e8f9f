#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>

/// What a test may not leave behind, checked around every test by `main`.
namespace test_support {

/// The descriptors that this process has open, each as "number -> what it
/// leads to".
std::set<std::string> openDescriptors();

/// Descriptors that process `pid` has open; as `openDescriptors`.
std::set<std::string> openDescriptorsOf(int pid);

/// The names in "/tmp" that this process's port names are part of.
std::set<std::string> ownLeftovers();

/// Fails a test at whose end more descriptors are open, or more of this process's
/// files lie in "/tmp", than at its start.
class LeakCheckListener : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo& test) override;
  void OnTestEnd(const testing::TestInfo& test) override;

 private:
  std::set<std::string> descriptorsBefore_;
  std::set<std::string> leftoversBefore_;
};

}  // namespace test_support
