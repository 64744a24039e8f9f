#include <signal.h>
#include <sys/wait.h>

#include "tests/support/terminal_session.h"
#include "tests/tools/treectl_fixture.h"

// The watch that paints, on a terminal.

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::TerminalOptions;
using test_support::TerminalSession;

class Live : public TreectlTest {
 protected:
  void start(const std::vector<std::string>& arguments, const TerminalOptions& options = {},
             const std::string& locale = "C.UTF-8") {
    std::vector<std::string> command{"env",
                                     "-u",
                                     "NO_COLOR",
                                     "TERM=xterm",
                                     "LC_ALL=" + locale,
                                     "TZ=UTC",
                                     test_support::buildDirectory() + "/bin/treectl",
                                     "watch"};
    for (const std::string& argument : arguments) {
      command.push_back(filled(argument));
    }
    terminal_.emplace(command, options);
  }

  TerminalSession& terminal() { return *terminal_; }

  void set(const std::string& address, const std::string& value) {
    expect({{"set", "--protected", address, value}});
  }

  /// Waits for the row of an address with what follows it, in columns.
  testing::AssertionResult showsRow(const std::string& pattern) {
    return terminal_->waitFor(
        [&](const test_support::Screen& screen) {
          for (int row = 0; row < screen.rows(); ++row) {
            if (testing::Matches(testing::MatchesRegex(filled(pattern)))(screen.row(row))) {
              return true;
            }
          }
          return false;
        },
        pattern);
  }

  /// After the end: the terminal is as it was, with `message` on it.
  void expectRestored(const std::string& message = {}) {
    EXPECT_EQ(terminal_->screen().text(), message) << terminal_->describe();
    const termios mode = terminal_->mode();
    constexpr tcflag_t typing = ICANON | ECHO;
    EXPECT_EQ(mode.c_lflag & typing, typing);
    EXPECT_NE(mode.c_iflag & tcflag_t{IXON}, 0U);
    EXPECT_NE(terminal_->bytesSince(0).find("\x1B[?25h"), std::string::npos);
  }

  void expectEnd(ExitStatus status, const std::string& message = {}) {
    EXPECT_EQ(terminal_->waitForExit(), status) << terminal_->describe();
    expectRestored(message);
  }

 private:
  std::optional<TerminalSession> terminal_;
};

TEST_F(Live, RepaintsOnlyTheRowsThatChange) {
  start({"--live", "/{S}/drive/speed", "/{S}/drive/label", "/{S}/drive/gains"});
  ASSERT_TRUE(showsRow("ADDRESS +VALUE +UNIT +CHANGED"));
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm +..:..:..\\...."));
  ASSERT_TRUE(showsRow("/{S}/drive/gains +1.5 0.25 +..:.*"));
  const std::size_t mark = terminal().mark();
  set("/{S}/drive/speed", "43");
  ASSERT_TRUE(showsRow("/{S}/drive/speed +43 +rpm +..:..:..\\...."));
  set("/{S}/drive/gains[1]", "3");
  ASSERT_TRUE(showsRow("/{S}/drive/gains +1.5 3 +..:.*"));
  const std::string bytes = terminal().bytesSince(mark);
  EXPECT_EQ(bytes.find("ADDRESS"), std::string::npos);
  EXPECT_EQ(bytes.find("label"), std::string::npos);
  EXPECT_EQ(bytes.find("\x1B[2J"), std::string::npos);
  ASSERT_TRUE(terminal().type("xq"));
  expectEnd({0, 0});
}

TEST_F(Live, ShowsControlBytesAsQuestionMarksAndCutsNames) {
  start({"--live", "/{S}/a\\/b*", "/{S}/drive/label"}, {.rows = 5, .columns = 20});
  ASSERT_TRUE(showsRow("/Model_t.* +tab\\?here.*"));
  ASSERT_TRUE(showsRow("/Model_t.*… +two words"));
  terminal().resize(5, 120);
  ASSERT_TRUE(showsRow(".* tab\\?here\\?back.slash \\? +..:..:..\\...."));
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
}

TEST_F(Live, ShowsALostServerInItsRows) {
  start({"--live", "/{S}/drive"});
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
  server().kill();
  ASSERT_TRUE(showsRow("/{S}/drive/speed +!lost +rpm .*"));
  ASSERT_TRUE(showsRow("/{S}/drive/label +!lost .*"));
  server().restart();
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
}

TEST_F(Live, RestoresTheTerminalAtEverySignalThatEndsIt) {
  const struct {
    int signal;
    ExitStatus status;
  } ends[] = {
      {SIGINT, {130, 0}}, {SIGTERM, {143, 0}}, {SIGHUP, {0, SIGHUP}}, {SIGQUIT, {0, SIGQUIT}}};
  for (const auto& end : ends) {
    start({"--live", "/{S}/drive/speed"});
    ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
    terminal().signal(end.signal);
    expectEnd(end.status);
  }
  // The keys for them are not taken away.
  start({"--plot", "/{S}/drive/speed"});
  ASSERT_TRUE(terminal().showsText("now"));
  ASSERT_TRUE(terminal().type("\x03"));
  expectEnd({130, 0});
}

TEST_F(Live, RestoresTheTerminalWhileItIsSuspended) {
  start({"--live", "/{S}/drive/speed"});
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
  terminal().signal(SIGTSTP);
  const auto stopped = terminal().nextStatus();
  ASSERT_TRUE(stopped && WIFSTOPPED(*stopped));
  ASSERT_TRUE(terminal().waitFor(
      [](const test_support::Screen& screen) { return screen.text().empty(); }, "no table"));
  EXPECT_NE(terminal().mode().c_lflag & tcflag_t{ICANON}, 0U);
  set("/{S}/drive/speed", "44");
  terminal().continueInForeground();
  ASSERT_TRUE(showsRow("/{S}/drive/speed +44 +rpm .*"));
  EXPECT_EQ(terminal().mode().c_lflag & tcflag_t{ICANON}, 0U);
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
}

TEST_F(Live, EndsAfterANumberOfValuesOrATime) {
  start({"--live", "--count", "3", "/{S}/drive/speed", "/{S}/drive/label"});
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
  set("/{S}/drive/label", "x");
  expectEnd({0, 0});
  start({"--plot", "--for", "0.2", "/{S}/drive/speed"});
  expectEnd({0, 0});
  start({"--live", "--fail-on-loss", "/{S}/drive/speed"});
  ASSERT_TRUE(showsRow("/{S}/drive/speed +42 +rpm .*"));
  server().kill();
  expectEnd({4, 0}, filled("treectl: /{S}/drive/speed: the server was lost\n"));
  server().restart();
}

TEST_F(Live, DrawsACurveForEachNumber) {
  start({"--plot", "/{S}/drive/speed", "/{S}/drive/gains", "/{S}/drive/label"},
        {.rows = 30, .columns = 70});
  ASSERT_TRUE(showsRow("━ /{S}/drive/speed  42 rpm"));
  ASSERT_TRUE(showsRow("━ /{S}/drive/gains\\[0\\]  1.5"));
  ASSERT_TRUE(showsRow("━ /{S}/drive/gains\\[1\\]  0.25"));
  ASSERT_TRUE(showsRow("  /{S}/drive/label  two words"));
  ASSERT_TRUE(showsRow(" *-60 s .* -30 s .* now"));
  set("/{S}/drive/speed", "70");
  ASSERT_TRUE(showsRow("━ /{S}/drive/speed  70 rpm"));
  ASSERT_TRUE(showsRow(" *70┤.*"));
  // It moves without changes, too.
  const std::size_t mark = terminal().mark();
  ASSERT_TRUE(terminal().writes("\x1B[", mark));
  terminal().resize(8, 24);
  ASSERT_TRUE(showsRow("━ /Model.*…  70 rpm.*"));
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
}

TEST_F(Live, DrawsWithAsciiWhereTheLocaleHasNothingElse) {
  start({"--plot", "/{S}/drive/speed"}, {}, "C");
  ASSERT_TRUE(showsRow("\\* /{S}/drive/speed  42 rpm"));
  ASSERT_TRUE(showsRow(" *[0-9]+[+].*\\*"));
  ASSERT_TRUE(showsRow(" *-60 s .* now"));
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
  const std::string bytes = terminal().bytesSince(0);
  EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte > 0; }));
}

TEST_F(Live, PaintsAtMostTwentyTimesASecond) {
  const test_support::ModelServer busy({"--synthetic", "1x20", "--churn", "10000"});
  start({"--live", "-s", busy.name(), "/"}, {.rows = 30, .columns = 80});
  ASSERT_TRUE(terminal().showsText("item_0019"));
  const std::size_t mark = terminal().mark();
  const auto begin = std::chrono::steady_clock::now();
  const auto paints = [&] {
    const std::string bytes = terminal().bytesSince(mark);
    int count = 0;
    for (std::size_t at = bytes.find("\x1B[2;1H"); at != std::string::npos;
         at = bytes.find("\x1B[2;1H", at + 1)) {
      ++count;
    }
    return count;
  };
  constexpr int pictures = 12;
  ASSERT_TRUE(
      terminal().waitFor([&](const auto& /*screen*/) { return paints() >= pictures; }, "pictures"));
  EXPECT_GE(std::chrono::steady_clock::now() - begin,
            std::chrono::milliseconds(50) * (pictures - 2));
  ASSERT_TRUE(terminal().type("q"));
  expectEnd({0, 0});
}

TEST_F(Live, NeedsATerminalThatMovesItsCursor) {
  for (const std::string option : {"--live", "--plot"}) {
    expect({{"watch", option, "/{S}/drive/speed"},
            2,
            "",
            "treectl: " + option + ": standard output is not a terminal\n"});
    TerminalSession dumb({"env", "TERM=dumb", test_support::buildDirectory() + "/bin/treectl",
                          "watch", option, filled("/{S}/drive/speed")});
    ASSERT_TRUE(dumb.showsText("treectl: " + option + ": this terminal cannot move its cursor"));
    EXPECT_EQ(dumb.waitForExit(), (ExitStatus{2, 0}));
  }
  expect({{"watch", "--live", "--csv", "/{S}/drive/speed"},
          2,
          "",
          "treectl: --live: not together with --csv\n"});
  expect({{"watch", "--live", "--plot", "/{S}/drive/speed"},
          2,
          "",
          "treectl: --live: not together with --plot\n"});
}

}  // namespace
}  // namespace treectl
