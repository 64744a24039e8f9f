#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "term/line_editor.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"
#include "tests/support/recorded_writes.h"
#include "tests/term/editor_fixture.h"

// The editor with its own thread, which reads input that the test feeds.

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::FedInput;
using test_support::RecordedWrites;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Writes = std::vector<std::string>;

/// Runs an editor until its input or the shell has ended.
void edit(const LineEditorHost& host) {
  LineEditor editor(0, false, host);
  editor.showPrompt("here", nullptr);
  editor.startReading();
}

/// The writes of an editor whose input is `bytes` and then ends; all of it is there when
/// the editor starts.
Writes writesFor(const std::string& bytes, FakeShell& shell) {
  FedInput input;
  constexpr int capacityForAll = 1 << 18;
  EXPECT_GE(fcntl(STDIN_FILENO, F_SETPIPE_SZ, capacityForAll), capacityForAll);
  input.feed(bytes);
  input.end();
  RecordedWrites writes;
  edit(shell.host());
  return writes.take();
}

std::string joined(const Writes& writes) {
  return std::accumulate(writes.begin(), writes.end(), std::string());
}

TEST(KeyThread, EchoesKeysRunsLinesAndEndsWithTheInput) {
  FakeShell shell;
  EXPECT_EQ(joined(writesFor("ls\n\nx", shell)), echo.prompt() + echo.typed("ls") + "\n" +
                                                     echo.nextPrompt() + "\n" + echo.prompt() +
                                                     echo.typed("x") + "\n");
  EXPECT_THAT(shell.lines, ElementsAre("ls"));
  EXPECT_TRUE(shell.ended);
}

TEST(KeyThread, WritesOncePerKey) {
  FakeShell shell;
  EXPECT_THAT(
      writesFor("ab\033[D\x7F\001\033[A\v\033[2~", shell),
      ElementsAre(echo.prompt(), echo.redrawn("a", 1), echo.redrawn("ab", 2), echo.cursorAt(1),
                  "\033[2K" + echo.prompt("b") + echo.redrawn("b", 0),
                  echo.prompt("b") + echo.redrawn("b", 0), echo.redrawn("b", 1),
                  echo.redrawn("b", 1), echo.redrawn("b2", 2), echo.redrawn("b2~", 3), "\n"));
}

TEST(KeyThread, FlushesTheLineFeedBeforeALineIsRun) {
  FakeShell shell;
  EXPECT_THAT(writesFor("x\n\n", shell),
              ElementsAre(echo.prompt(), echo.redrawn("x", 1), "\n", echo.nextPrompt(),
                          "\n" + echo.prompt(), "\n"));
}

TEST(KeyThread, ReadsNoKeyBeforeReadingIsStarted) {
  FedInput input;
  input.feed("early\n");
  input.end();
  FakeShell shell;
  CapturedOutput output;
  { const LineEditor editor(0, false, shell.host()); }
  EXPECT_THAT(shell.lines, IsEmpty());
  EXPECT_FALSE(shell.ended);
  EXPECT_EQ(output.take(), "");
}

/// Lets an editor read keys until the first line that it runs, which ends the shell.
void runUntilALineEndsTheShell(FakeShell& shell) {
  LineEditorHost host = shell.host();
  LineEditor* ending = nullptr;
  host.runLine = [&](const char* line) {
    shell.lines.emplace_back(line);
    ending->setRunning(false);
    return false;
  };
  LineEditor editor(0, false, host);
  ending = &editor;
  editor.startReading();
}

TEST(KeyThread, EndsWithTheKeyDuringWhichTheRunningFlagWasCleared) {
  FedInput input;
  input.feed("bye\nlate\n");
  FakeShell shell;
  CapturedOutput output;
  runUntilALineEndsTheShell(shell);
  EXPECT_THAT(shell.lines, ElementsAre("bye"));
  EXPECT_FALSE(shell.ended);
  std::array<char, 8> rest{};
  EXPECT_EQ(read(STDIN_FILENO, rest.data(), rest.size()), 5);
  EXPECT_STREQ(rest.data(), "late\n");
}

TEST(KeyThread, EndsWithATabThatEndedTheShell) {
  FedInput input;
  input.feed("ls; q\tlate");
  FakeShell shell;
  CapturedOutput output;
  runUntilALineEndsTheShell(shell);
  EXPECT_THAT(shell.lines, ElementsAre("tab ls; q"));
}

TEST(KeyThread, LeavesTheInputAfterALineToTheProgramThatTheLineStarts) {
  FedInput input;
  input.feed("cat\nmore\n");
  FakeShell shell;
  LineEditorHost host = shell.host();
  std::string taken;
  host.runLine = [&taken, &input](const char*) {
    std::array<char, 16> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    taken.assign(bytes.data(), static_cast<std::size_t>(count));
    input.end();
    return true;
  };
  CapturedOutput output;
  edit(host);
  EXPECT_EQ(taken, "more\n");
}

TEST(KeyThread, AcceptsEveryByte) {
  std::string text;
  for (int byte = 0; byte < 256; ++byte) {
    text.push_back(static_cast<char>(byte));
  }
  FakeShell shell;
  EXPECT_THAT(writesFor(text + text, shell), testing::Not(IsEmpty()));
  EXPECT_TRUE(shell.ended);
}

TEST(KeyThread, RepaintsPromptLineAndCursorOnRequest) {
  FedInput input;
  FakeShell shell;
  RecordedWrites writes;
  std::thread typist;
  {
    LineEditor editor(0, false, shell.host());
    editor.showPrompt("here", "text");
    editor.moveCursor(LineEditor::start);
    requestRepaint();
    editor.startReading();
    typist = std::thread([&] {
      EXPECT_EQ(writes.next(), echo.prompt("text") + echo.cursorAt(0));
      EXPECT_EQ(writes.next(), echo.prompt("text") + echo.cursorAt(0));
      input.end();
    });
  }
  typist.join();
}

constexpr std::size_t pastedBytes = 100'000;

TEST(KeyThread, ALongPasteOnOneLineIsDrawnWhenItPauses) {
  constexpr std::size_t drawnImmediately = 1025;
  const std::string text(pastedBytes, 'p');
  FakeShell shell;
  const Writes writes = writesFor(text, shell);
  EXPECT_EQ(joined(writes), echo.prompt() + echo.typed(text.substr(0, drawnImmediately)) +
                                echo.redrawn(text, text.size()) + "\n");
  // The prompt, each key that is drawn immediately, the rest in blocks of stdio, the end.
  EXPECT_LE(writes.size(), 1 + drawnImmediately + 3 + 1);
}

TEST(KeyThread, ALongPasteIsDrawnBeforeTheNextActionKey) {
  const std::string text(2000, 'p');
  FakeShell shell;
  const std::string bytes = joined(writesFor(text + "\033[D\033", shell));
  EXPECT_THAT(bytes, testing::EndsWith(echo.redrawn(text, text.size()) +
                                       echo.cursorAt(text.size() - 1) + "\n"));
  EXPECT_EQ(bytes.find(text), bytes.rfind(text));
}

TEST(KeyThread, ALongPasteIsDrawnEvenIfItPausesInsideASequence) {
  const std::string text(2000, 'p');
  FedInput input;
  input.feed(text + "\033[");
  FakeShell shell;
  RecordedWrites writes;
  std::thread typist([&] {
    const std::string all = echo.redrawn(text, text.size());
    while (writes.next() != all) {
    }
    input.end();
  });
  edit(shell.host());
  typist.join();
  EXPECT_EQ(writes.take().back(), "\n");
}

TEST(KeyThread, ALongPasteFromAFileIsDrawnAtItsEnd) {
  const std::string text(2000, 'p');
  const FedInput input;
  const int file = memfd_create("keys", MFD_CLOEXEC);
  ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ASSERT_EQ(lseek(file, 0, SEEK_SET), 0);
  ASSERT_EQ(dup2(file, STDIN_FILENO), STDIN_FILENO);
  close(file);
  FakeShell shell;
  RecordedWrites writes;
  edit(shell.host());
  EXPECT_EQ(writes.take().back(), echo.redrawn(text, text.size()) + "\n");
}

TEST(KeyThread, ALongPasteOfLinesRunsEachOfThem) {
  const std::string line = "get /drive/speed";
  constexpr std::size_t lines = pastedBytes / 17;
  std::string text;
  std::string shown = echo.prompt();
  for (std::size_t count = 0; count < lines; ++count) {
    text += line + '\n';
    shown += echo.typed(line) + "\n" + echo.nextPrompt();
  }
  FakeShell shell;
  const Writes writes = writesFor(text, shell);
  EXPECT_EQ(joined(writes), shown + "\n");
  EXPECT_THAT(shell.lines, Each(line));
  EXPECT_EQ(shell.lines.size(), lines);
  // The first prompt, one write per byte, one after each line that was run, the end.
  EXPECT_EQ(writes.size(), 1 + text.size() + lines + 1);
}

}  // namespace
}  // namespace treescope
