#include "tests/support/terminal_session.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>

#include "tests/support/keys.h"

namespace test_support {
namespace {

using testing::HasSubstr;

TEST(TerminalSession, ShowsOutputOnTheScreenAndKeepsItsBytes) {
  TerminalSession session({"printf", "\\033[1mone\\ntwo"});
  EXPECT_TRUE(session.showsScreen("one\ntwo\n"));
  EXPECT_TRUE(session.showsLine("two|"));
  EXPECT_EQ(session.screen().lookOf("one"), (Look{.bold = true}));
  EXPECT_EQ(session.waitForExit(), (ExitStatus{0, 0}));
  EXPECT_EQ(session.bytesSince(0), "\033[1mone\r\ntwo");
}

TEST(TerminalSession, ReadsOutputPieceByPiece) {
  TerminalSession session({"printf", "one two three"});
  ASSERT_TRUE(session.readThrough("one"));
  ASSERT_TRUE(session.readThrough("two"));
  ASSERT_TRUE(session.waitForExit());
  EXPECT_EQ(session.read(3), " th");
  EXPECT_EQ(session.unread(), "ree");
}

TEST(TerminalSession, EchoesWhatIsTypedUnlessItPassesBytes) {
  TerminalSession usual({"cat"});
  ASSERT_TRUE(usual.type("typed\r"));
  EXPECT_TRUE(usual.showsScreen("typed\ntyped\n"));
  TerminalSession exact({"head", "-c", "6"}, {.passesBytes = true});
  ASSERT_TRUE(exact.type("typed\n"));
  ASSERT_TRUE(exact.waitForExit());
  EXPECT_EQ(exact.bytesSince(0), "typed\n");
}

TEST(TerminalSession, FailsAWaitWithTheScreenTheBytesAndTheStatus) {
  TerminalSession session({"sh", "-c", "printf '\\033[31mred'; exit 3"});
  const testing::AssertionResult result = session.showsText("green");
  ASSERT_FALSE(result);
  EXPECT_THAT(result.message(), HasSubstr("expected: the text  green"));
  EXPECT_THAT(result.message(), HasSubstr("|red "));
  EXPECT_THAT(result.message(), HasSubstr("last bytes: \\e[31mred"));
  EXPECT_THAT(result.message(), HasSubstr("ended with status 3"));
}

TEST(TerminalSession, StartsTheProgramInItsDirectoryAndSize) {
  TerminalSession session({"sh", "-c", "pwd; stty size"},
                          {.rows = 5, .columns = 33, .directory = "/"});
  EXPECT_TRUE(session.showsScreen("/\n5 33\n"));
}

TEST(TerminalSession, EndsAProgramThatCannotBeExecutedAsAShellDoes) {
  TerminalSession session({"/nowhere/program"});
  EXPECT_EQ(session.waitForExit(), (ExitStatus{127, 0}));
}

TEST(TerminalSession, StopsAndContinuesItsJob) {
  TerminalSession session({"cat"});
  ASSERT_TRUE(session.type(keys::ctrl('Z')));
  EXPECT_TRUE(WIFSTOPPED(session.nextStatus().value_or(0)));
  session.continueInForeground();
  EXPECT_TRUE(WIFCONTINUED(session.nextStatus().value_or(0)));
  ASSERT_TRUE(session.type("on\r"));
  EXPECT_TRUE(session.readThrough("on\r\non\r\n"));
  session.moveToBackground();
  // The next read of a job in the background stops it.
  ASSERT_TRUE(session.type("off\r"));
  EXPECT_EQ(WSTOPSIG(session.nextStatus().value_or(0)), SIGTTIN);
  session.signal(SIGKILL);
  EXPECT_EQ(session.waitForExit(), (ExitStatus{0, SIGKILL}));
}

TEST(TerminalSession, EndsTheInputOfItsJobWhenItHangsUp) {
  TerminalSession session({"cat"});
  ASSERT_TRUE(session.type("on\r"));
  ASSERT_TRUE(session.readThrough("on\r\non\r\n"));
  session.hangUp();
  EXPECT_TRUE(session.waitForExit());
}

TEST(TerminalSession, SendsTheInterruptKeyToItsJob) {
  TerminalSession session({"cat"});
  ASSERT_TRUE(session.type("on\r" + keys::ctrl('C')));
  EXPECT_EQ(session.waitForExit(), (ExitStatus{0, SIGINT}));
}

}  // namespace
}  // namespace test_support
