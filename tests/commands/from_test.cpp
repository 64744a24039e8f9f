#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "tests/commands/scope_fixture.h"
#include "tests/support/scratch_directory.h"

namespace treescope::test {
namespace {

class From : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }

  /// Runs `from` on a file with this content.
  CommandResult runFile(const std::string& bytes) {
    return run("from " + directory_.write("f", bytes));
  }

  test_support::ScratchDirectory directory_;
};

TEST_F(From, RunsTheLinesOfAFile) {
  EXPECT_EQ(runFile("set 5 /drive/speed\nstr \"a b\" /drive/label"),
            (CommandResult{1, "/drive/speed    [5]\n/drive/label    [a b]\n"}));
  EXPECT_EQ(server_.speed.value(), 5);
  EXPECT_EQ(server_.label.value(), "a b");
}

TEST_F(From, ReturnsNothingAfterALastLineFeed) {
  EXPECT_EQ(runFile("set 5 /drive/speed\n"), (CommandResult{3, "/drive/speed    [5]\n"}));
  EXPECT_EQ(runFile(""), (CommandResult{3, ""}));
}

TEST_F(From, StopsAtAnEmptyLine) {
  EXPECT_EQ(runFile("set 5 /drive/speed\n\nset 6 /drive/speed\n"),
            (CommandResult{3, "/drive/speed    [5]\n"}));
  EXPECT_EQ(runFile("set 7 /drive/speed\n  \nset 8 /drive/speed\n"),
            (CommandResult{3, "/drive/speed    [7]\n"}));
}

TEST_F(From, StopsAtTheFirstError) {
  EXPECT_EQ(runFile("set 1 /drive/gains\nset 6 /drive/speed\n"),
            (CommandResult{4, "ERROR: NotFound\nERROR: NotFound\n"}));
  EXPECT_EQ(server_.speed.value(), 42);
}

TEST_F(From, ContinuesAfterACommandWithNothingToReport) {
  EXPECT_EQ(runFile("set 1 /nothing\nset 6 /drive/speed"),
            (CommandResult{1, "/drive/speed    [6]\n"}));
}

TEST_F(From, ContinuesAfterAStoreThatTheServerRefuses) {
  EXPECT_EQ(
      runFile("set B /drive/serial\nset 11 /drive/limited\nset 6 /drive/speed"),
      (CommandResult{1, "/drive/serial   [A-17]\n/drive/limited  [1]\n/drive/speed    [6]\n"}));
}

TEST_F(From, ReportsAFileThatCannotBeOpened) {
  const CommandResult error{6, "ERROR: OpenFileError\n"};
  EXPECT_EQ(run("from " + directory_.file("none")), error);
  EXPECT_EQ(run("from " + directory_.path()), error);
}

TEST_F(From, AwaitsTheLinesOfAPipeWithoutTheClientMutex) {
  const std::string pipe = directory_.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::thread writer([this, &pipe] {
    const int end = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    { const KSTD::KThreadMutexLock held(manager_.clientMutex); }
    const std::string lines = "set 5 /drive/speed\npwd";
    EXPECT_EQ(write(end, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    close(end);
  });
  EXPECT_EQ(run("from " + pipe), (CommandResult{1, "/drive/speed    [5]\n/" + name_ + '\n'}));
  writer.join();
  unlink(pipe.c_str());
}

TEST_F(From, RunsItselfUntilNoDescriptorIsLeft) {
  const std::string file = directory_.file("self");
  ASSERT_EQ(directory_.write("self", "pwd\nfrom " + file), file);
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  const rlimit lowered{200, saved.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
  const CommandResult ran = run("from " + file);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
  EXPECT_EQ(ran.result, 6);
  const auto levels = std::ranges::count(ran.output, '/');
  EXPECT_GT(levels, 100);
  EXPECT_EQ(std::ranges::count(ran.output, ':'), levels + 1);
}

TEST_F(From, IgnoresASecondArgument) {
  const std::string file = directory_.write("f", "pwd");
  EXPECT_EQ(run("from " + file + " /no/such/place"), (CommandResult{1, '/' + name_ + '\n'}));
}

TEST_F(From, RunsNothingWhileNotConnected) {
  ASSERT_EQ(run("cd").result, 1);
  const std::string file = directory_.write("f", "pwd\n");
  EXPECT_EQ(run("from " + file), (CommandResult{3, ""}));
  EXPECT_EQ(run("from " + directory_.file("none")), (CommandResult{3, ""}));
  EXPECT_EQ(run("cmdfrom " + file), (CommandResult{3, "/\n"}));
}

TEST_F(From, RequiresAFile) {
  const CommandResult error{5, "ERROR: OptionError\n"};
  EXPECT_EQ(run("from"), error);
  EXPECT_EQ(run("from a b c"), error);
  EXPECT_EQ(run("from -r a"), error);
}

}  // namespace
}  // namespace treescope::test
