#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "tests/commands/scope_fixture.h"
#include "tests/support/scratch_directory.h"

namespace treescope::test {
namespace {

/// Puts its own program `man` first in the search path.
class Help : public ScopeFixture {
 protected:
  void SetUp() override {
    const std::string man = directory_.write("man", "#!/bin/sh\necho \"man $*\"\nexit 3\n");
    ASSERT_EQ(::chmod(man.c_str(), 0700), 0);
    ASSERT_EQ(::setenv("PATH", (directory_.path() + ':' + path_).c_str(), 1), 0);
  }
  void TearDown() override { EXPECT_EQ(::setenv("PATH", path_.c_str(), 1), 0); }

  test_support::ScratchDirectory directory_;
  const std::string path_ = std::getenv("PATH");
};

TEST_F(Help, SucceedsWhateverManReturns) {
  EXPECT_EQ(run("help"), (CommandResult{1, "man treescope\n"}));
  connect();
  EXPECT_EQ(run("help"), (CommandResult{1, "man treescope\n"}));
}

TEST_F(Help, FlushesEarlierOutputFirst) {
  test_support::CapturedOutput captured;
  std::fputs("before\n", stdout);
  EXPECT_EQ(scope_.dispatch("help"), 1);
  EXPECT_EQ(captured.take(), "before\nman treescope\n");
}

TEST_F(Help, AcceptsNoArguments) {
  EXPECT_EQ(run("help me"), (CommandResult{3, ""}));
}

}  // namespace
}  // namespace treescope::test
