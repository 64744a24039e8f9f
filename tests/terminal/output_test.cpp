#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>

#include <cerrno>
#include <optional>
#include <thread>

#include "tests/support/process.h"
#include "tests/support/system_call_filter.h"
#include "tests/terminal/terminal_test.h"

// When and whether output arrives.

namespace terminal_test {
namespace {

using test_support::ExitStatus;

class Output : public TerminalTest {
 protected:
  ModelServer server_{{"--synthetic", "4x5000"}};
};

std::size_t partsIn(const std::string& bytes) {
  const std::string part = "item_";
  std::size_t count = 0;
  for (std::size_t at = bytes.find(part); at != std::string::npos; at = bytes.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(Output, OfANonBlockingPipeWaitsForItsReader) {
  const auto result = test_support::run(
      {test_support::treescopeProgram(), "-c", "cd " + server_.name() + ";ls -lr"}, {},
      {.nonBlockingOutput = true});
  EXPECT_EQ(result.status, ExitStatus());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(partsIn(result.output), 20000U);
}

TEST_F(Output, OfANonBlockingTerminalWaitsForTheUser) {
  start({.nonBlocking = true});
  connect(server_.name());
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type("ls -lr" + keys::returnKey + "done"));
  ASSERT_TRUE(showsLine("[ " + server_.name() + "]$ done|"));
  EXPECT_EQ(partsIn(shell().bytesSince(mark)), 20000U);
}

TEST_F(Output, OfACommandPrecedesTheWaitOfTheNextOne) {
  start();
  connect(server_.name());
  server_.hang();
  ASSERT_TRUE(enter("pwd;get group_000/item_0000;pwd"));
  ASSERT_TRUE(showsText("/" + server_.name()));
  // The server replies in time only if the path has been shown at once.
  server_.resume();
  EXPECT_TRUE(showsText("/group_000/item_0000    [0]"));
}

TEST(OutputOfErrors, SaysThatNoThreadCanBeStarted) {
  std::optional<test_support::Finished> result;
  // A thread of its own, since the filter stays.
  std::thread([&] {
    test_support::SystemCallFilter filter;
    // The C library then uses the older call, whose arguments a filter can see.
    filter.fail(SYS_clone3, ENOSYS);
    filter.failIfSet(SYS_clone, 0, CLONE_THREAD, EAGAIN);
    if (filter.install()) {
      result = test_support::run({test_support::treescopeProgram()}, "pwd\n");
    }
  }).join();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->status, ExitStatus());
  EXPECT_EQ(result->errors, "treescope: cannot start a thread to read keys\n");
}

}  // namespace
}  // namespace terminal_test
