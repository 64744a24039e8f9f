#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "tests/shell/recording_shell.h"
#include "tests/shell/script_file.h"
#include "tests/support/captured_output.h"

// Command files that are pipes, and files that run files.

namespace treescope {
namespace {

using test_support::CapturedOutput;
using testing::ElementsAre;

class CommandFiles : public testing::Test {
 protected:
  int runFile(const std::string& contents) {
    const ScriptFile file(contents);
    return shell.runCommandFile(file.name());
  }

  RecordingShell shell;
};

/// A named pipe that the destructor removes.
class NamedPipe {
 public:
  NamedPipe() { EXPECT_EQ(mkfifo(name_.c_str(), 0600), 0); }
  ~NamedPipe() { unlink(name_.c_str()); }
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;

  [[nodiscard]] const char* name() const { return name_.c_str(); }
  /// Waits for a reader.
  [[nodiscard]] int openWriter() const { return open(name(), O_WRONLY | O_CLOEXEC); }

 private:
  const std::string name_ = testing::TempDir() + "pipe-" + std::to_string(getpid());
};

/// Waits until the reader of a pipe has read what was written.
void awaitEmpty(int writer) {
  int unread = 1;
  while (ioctl(writer, FIONREAD, &unread) == 0 && unread > 0) {
    std::this_thread::yield();
  }
}

void writeText(int descriptor, const std::string& text) {
  EXPECT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

TEST_F(CommandFiles, APipeIsRunAsItsWriterWritesUntilTheWriterClosesIt) {
  const NamedPipe pipe;
  const NamedPipe* const written = &pipe;
  std::thread writer([written] {
    // Returns when the shell waits for its writer.
    const int end = written->openWriter();
    for (const char* piece : {"ge", "t a", "\nget b\nge", "t c"}) {
      writeText(end, piece);
      awaitEmpty(end);
    }
    close(end);
  });
  EXPECT_EQ(shell.runCommandFile(pipe.name()), 1);
  writer.join();
  EXPECT_THAT(shell.calls, ElementsAre("get|a", "get|b", "get|c"));
}

TEST_F(CommandFiles, APipeIsReadWhatItsWriterLeft) {
  const NamedPipe pipe;
  const int reader = open(pipe.name(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const int writer = pipe.openWriter();
  writeText(writer, "get left");
  close(writer);
  EXPECT_EQ(shell.runCommandFile(pipe.name()), 1);
  close(reader);
  EXPECT_THAT(shell.calls, ElementsAre("get|left"));
}

TEST_F(CommandFiles, APipeWhoseWriterWritesNothingIsAnEmptyFile) {
  const NamedPipe pipe;
  const NamedPipe* const written = &pipe;
  std::thread writer([written] { close(written->openWriter()); });
  EXPECT_EQ(shell.runCommandFile(pipe.name()), 3);
  writer.join();
}

TEST_F(CommandFiles, StartedProgramsDoNotInheritAPipe) {
  const NamedPipe pipe;
  const NamedPipe* const written = &pipe;
  std::thread writer([written] {
    const int end = written->openWriter();
    writeText(end, "$ls -l /proc/self/fd");
    close(end);
  });
  CapturedOutput output;
  EXPECT_EQ(shell.runCommandFile(pipe.name()), 1);
  writer.join();
  EXPECT_THAT(output.take(), testing::Not(testing::HasSubstr("pipe-")));
}

TEST_F(CommandFiles, ContinueAfterTheFilesThatTheyRun) {
  const ScriptFile innermost("get 3\n");
  const std::string runInnermost = std::string("cmdfrom ") + innermost.name();
  const ScriptFile inner(runInnermost + ";get 2; " + runInnermost + "\nget 2");
  CapturedOutput output;
  EXPECT_EQ(runFile(std::string("get 1;cmdfrom ") + inner.name() + ";get 1\nget 1\n"), 3);
  EXPECT_THAT(shell.calls,
              ElementsAre("get|1", "get|3", "get|2", "get|3", "get|2", "get|1", "get|1"));
  EXPECT_EQ(output.take(), "");
}

TEST_F(CommandFiles, EndWithTheErrorOfAFileThatTheyRun) {
  const ScriptFile failing("get -r\nget never");
  const ScriptFile inner(std::string("cmdfrom ") + failing.name() + "\nget never");
  CapturedOutput output;
  EXPECT_EQ(runFile(std::string("cmdfrom ") + inner.name() + ";get never\nget never"), 5);
  const std::string message = "ERROR: OptionError\n";
  EXPECT_EQ(output.take(), message + message + message);
  EXPECT_THAT(shell.calls, testing::IsEmpty());
}

TEST_F(CommandFiles, EndWhenAFileThatTheyRunCannotBeOpened) {
  const ScriptFile outer("cmdfrom /missing\nget never");
  CapturedOutput output;
  EXPECT_EQ(shell.dispatch((std::string("cmdfrom ") + outer.name()).c_str()), 6);
  EXPECT_EQ(output.take(), "ERROR: OpenFileError\nERROR: OpenFileError\n");
  EXPECT_THAT(shell.calls, testing::IsEmpty());
}

TEST_F(CommandFiles, EndWithTheExitInAFileThatTheyRun) {
  const ScriptFile exiting("exit");
  EXPECT_EQ(runFile(std::string("cmdfrom ") + exiting.name() + "\nget never"), 11);
  EXPECT_THAT(shell.calls, ElementsAre("exit"));
  EXPECT_EQ(shell.isRunning(), 0);
}

TEST_F(CommandFiles, AHandlerThatRunsAFileGetsItsResult) {
  struct Shell : RecordingShell {
    int doOther(const char* word, const char* first, const char* /*second*/) override {
      return *word == 'f' ? runCommandFile(first)
                          : dispatch((std::string("cmdfrom ") + first).c_str());
    }
  } handling;
  const ScriptFile failing("get -r");
  const ScriptFile outer(std::string("file ") + failing.name() + "\nget never");
  EXPECT_EQ(handling.runCommandFile(outer.name()), 5);
  const ScriptFile dispatching(std::string("dispatch ") + failing.name() + "\nget never");
  EXPECT_EQ(handling.runCommandFile(dispatching.name()), 5);
  EXPECT_THAT(handling.calls, testing::IsEmpty());
}

/// The limit on descriptors, restored at the end.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &saved_), 0);
    const rlimit raised{std::min(limit, saved_.rlim_max), saved_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    limit_ = raised.rlim_cur;
  }
  ~DescriptorLimit() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &saved_), 0); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  [[nodiscard]] std::size_t limit() const { return static_cast<std::size_t>(limit_); }

 private:
  rlimit saved_{};
  rlim_t limit_ = 0;
};

/// Runs `function` on a thread with a stack of `size` bytes.
void runOnStack(std::size_t size, std::function<void()> function) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  pthread_t thread{};
  const auto start = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &function), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_EQ(pthread_attr_destroy(&attributes), 0);
}

TEST_F(CommandFiles, AFileThatRunsItselfEndsWhenNoDescriptorIsLeft) {
  const std::string name = testing::TempDir() + "self-" + std::to_string(getpid());
  const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_NE(file, -1);
  writeText(file, "get level;cmdfrom " + name);
  close(file);
  for (const rlim_t wanted : {rlim_t{200}, rlim_t{20000}, rlim_t{200}}) {
    shell.calls.clear();
    const DescriptorLimit descriptors(wanted);
    CapturedOutput output;
    runOnStack(std::size_t{256} * 1024,
               [this, &name] { EXPECT_EQ(shell.runCommandFile(name.c_str()), 6); });
    EXPECT_GT(shell.calls.size(), descriptors.limit() - 100);
    const std::string message = "ERROR: OpenFileError\n";
    const std::string messages = output.take();
    EXPECT_TRUE(messages.starts_with(message));
    EXPECT_EQ(messages.size(), shell.calls.size() * message.size());
  }
  unlink(name.c_str());
}

}  // namespace
}  // namespace treescope
