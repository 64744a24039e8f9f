#include "tests/support/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "tests/support/leak_check.h"
#include "tests/support/scratch_directory.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;

TEST(Process, ReturnsOutputErrorsAndStatus) {
  const Finished result = run({"sh", "-c", "echo out; echo err >&2; exit 3"});
  EXPECT_EQ(result.status, (ExitStatus{3, 0}));
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.errors, "err\n");
}

TEST(Process, MergesErrorsIntoOutputOnRequest) {
  const Finished result = run({"sh", "-c", "echo out; echo err >&2"}, {},
                              {.environment = {}, .directory = {}, .mergeErrors = true});
  EXPECT_EQ(result.output, "out\nerr\n");
  EXPECT_EQ(result.errors, "");
}

TEST(Process, StartsWithTheGivenEnvironmentAndDirectory) {
  ProcessOptions options;
  options.environment = {"COLOUR=green"};
  options.directory = "/";
  EXPECT_EQ(run({"/bin/sh", "-c", "echo $COLOUR $HOME; pwd"}, {}, options).output, "green\n/\n");
}

TEST(Process, PassesWordsUnchanged) {
  EXPECT_EQ(run({"printf", "[%s]", "two words", "$HOME", "\"'"}).output, "[two words][$HOME][\"']");
}

TEST(Process, ReadsLinesAsTheyCome) {
  Process cat({"cat"});
  ASSERT_TRUE(cat.write("first\nsecond\nlast"));
  EXPECT_EQ(cat.readLine(), "first");
  EXPECT_TRUE(cat.waitForLine("second"));
  cat.closeInput();
  EXPECT_EQ(cat.readLine(), "last");
  EXPECT_EQ(cat.readLine(), std::nullopt);
  EXPECT_EQ(cat.finish(), (ExitStatus{0, 0}));
}

TEST(Process, ReturnsNoLineAfterTheTimeLimit) {
  Process cat({"cat"});
  ASSERT_TRUE(cat.write("no line feed"));
  EXPECT_TRUE(cat.waitForOutput("feed"));
  EXPECT_EQ(cat.readLine(milliseconds(1)), std::nullopt);
  EXPECT_FALSE(cat.waitForLine("other", milliseconds(1)));
  EXPECT_FALSE(cat.waitForOutput("other", milliseconds(1)));
  EXPECT_EQ(cat.waitForExit(milliseconds(1)), std::nullopt);
}

TEST(Process, ReadsOutputWhileItWritesMoreThanAPipeHolds) {
  const std::string text(1 << 20, 'x');
  const Finished result = run({"cat"}, text);
  EXPECT_EQ(result.output, text);
}

TEST(Process, ReportsThatTheProgramReadsNoMore) {
  Process gone({"true"});
  EXPECT_EQ(gone.waitForExit(), (ExitStatus{0, 0}));
  EXPECT_FALSE(gone.write("anything"));
}

TEST(Process, ReportsTheSignalThatEndedTheProgram) {
  Process cat({"cat"});
  cat.signal(SIGINT);
  EXPECT_EQ(cat.waitForExit(), (ExitStatus{0, SIGINT}));
}

TEST(Process, ThrowsIfThereIsNoSuchProgram) {
  EXPECT_THROW(Process({"/nowhere/program"}), std::system_error);
}

TEST(Process, KillsAndReapsAProgramThatIgnoresTermination) {
  pid_t pid = 0;
  {
    Process stubborn({"sh", "-c", "trap '' TERM; echo ready; while :; do read -r line; done"});
    ASSERT_TRUE(stubborn.waitForLine("ready"));
    pid = stubborn.pid();
  }
  EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(Process, KillsAllProgramsOfItsGroup) {
  const ScratchDirectory files;
  const std::string fifo = files.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const Descriptor reader(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  {
    Process pipeline({"sh", "-c", "(exec 9>\"$0\"; echo ready; sleep 100) | cat", fifo},
                     {.ownGroup = true});
    ASSERT_TRUE(pipeline.waitForLine("ready"));
    char byte = 0;
    EXPECT_EQ(::read(reader.get(), &byte, 1), -1);
  }
  EXPECT_TRUE(eventually([&] {
    char byte = 0;
    return ::read(reader.get(), &byte, 1) == 0;
  })) << "no program has the pipe open any more";
}

TEST(Process, PassesOnNoDescriptorOfTheTest) {
  Process first({"cat"});
  ASSERT_TRUE(first.write("started\n"));
  ASSERT_TRUE(first.waitForLine("started"));
  Process second({"cat"});
  ASSERT_TRUE(second.write("started\n"));
  ASSERT_TRUE(second.waitForLine("started"));
  EXPECT_EQ(openDescriptorsOf(second.pid()).size(), openDescriptorsOf(first.pid()).size());
}

}  // namespace
}  // namespace test_support
