#include "tests/support/leak_check.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/port_name.h"
#include "tests/support/process.h"

namespace test_support {
namespace {

using testing::HasSubstr;

/// A build for another machine has a script that starts the program.
std::string leakyProgram() {
  const std::string emulated = buildDirectory() + "/emulated/leaky_program";
  return std::filesystem::exists(emulated) ? emulated : buildDirectory() + "/tests/leaky_program";
}

Finished runLeaky(const std::string& test) {
  // Its tests are not divided as those of this program may be.
  ProcessOptions options;
  options.environment.emplace();
  return run({leakyProgram(), "--gtest_filter=Leaky." + test, "--gtest_color=no"}, {}, options);
}

TEST(LeakCheck, FailsATestThatLeavesADescriptorOpen) {
  const Finished result = runLeaky("LeavesADescriptorOpen");
  EXPECT_EQ(result.status, (ExitStatus{1, 0}));
  EXPECT_THAT(result.output, HasSubstr("left open:"));
  EXPECT_THAT(result.output, HasSubstr("-> /dev/null"));
  EXPECT_THAT(result.output, HasSubstr("[  FAILED  ] Leaky.LeavesADescriptorOpen"));
}

TEST(LeakCheck, FailsATestThatLeavesAMailbox) {
  const Finished result = runLeaky("LeavesAMailbox");
  const std::size_t start = result.output.find("/tmp/");
  ASSERT_NE(start, std::string::npos) << result.output;
  const std::string path = result.output.substr(start, result.output.find('\n', start) - start);
  EXPECT_EQ(::unlink(path.c_str()), 0) << path;
  EXPECT_EQ(result.status, (ExitStatus{1, 0}));
  EXPECT_THAT(result.output, HasSubstr("left in /tmp:"));
}

TEST(LeakCheck, PassesATestThatClosesWhatItOpened) {
  const Finished result = runLeaky("ClosesWhatItOpened");
  EXPECT_EQ(result.status, (ExitStatus{0, 0})) << result.output;
}

TEST(UniquePortName, NamesTheTestAndNeverRepeats) {
  const std::string first = uniquePortName();
  const std::string second = uniquePortName();
  EXPECT_NE(first, second);
  EXPECT_THAT(first, testing::StartsWith("Model_" + portNameMark()));
  EXPECT_THAT(first, HasSubstr("NamesTheTestAndNeverRepeats"));
}

class ParameterisedPortName : public testing::TestWithParam<int> {};

TEST_P(ParameterisedPortName, HoldsNoSlash) {
  EXPECT_EQ(uniquePortName().find('/'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(One, ParameterisedPortName, testing::Values(1));

}  // namespace
}  // namespace test_support
