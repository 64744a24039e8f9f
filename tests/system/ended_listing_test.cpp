#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/support/descriptor.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/pump.h"
#include "tests/support/scratch_directory.h"

// What a command has printed when a signal ends the shell.

namespace {

using test_support::Descriptor;
using test_support::ModelServer;

/// Starts `words` with `output` as its standard output.
pid_t startCommand(std::vector<std::string> words, int output) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(output, STDOUT_FILENO);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  return pid;
}

class EndedListing : public testing::Test {
 protected:
  EndedListing() : whole_(test_support::run(command()).output) {}

  std::vector<std::string> command() {
    return {test_support::treescopeProgram(), "-c",
            "cd " + server_.name() + ";ls -lr;get /group_000/item_0000;ls -lr"};
  }

  /// Starts the shell with `output` as its standard output.
  [[nodiscard]] pid_t start(int output) { return startCommand(command(), output); }

  /// Whether the signal has ended it. Otherwise it ended by itself before.
  static bool end(pid_t pid) {
    int status = 0;
    EXPECT_EQ(kill(pid, SIGTERM), 0);
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM)) << status;
    return status != 0;
  }

  /// The lines are the first ones of the listing, and none is divided.
  void expectWholeLines(const std::string& printed) {
    EXPECT_TRUE(whole_.starts_with(printed)) << printed.size();
    EXPECT_TRUE(printed.empty() || printed.back() == '\n')
        << printed.substr(printed.rfind('\n') + 1);
  }

  /// Ends a shell that has written at least `size` bytes of its listing to `file`.
  void endWhileWriting(int file, off_t size) {
    const pid_t pid = start(file);
    struct stat status {};
    while (fstat(file, &status) == 0 && status.st_size < size) {
      std::this_thread::yield();
    }
    const bool isEnded = end(pid);
    ASSERT_EQ(fstat(file, &status), 0);
    std::string printed(static_cast<std::size_t>(status.st_size), '\0');
    ASSERT_EQ(pread(file, printed.data(), printed.size(), 0), status.st_size);
    expectWholeLines(printed);
    // On a busy machine it may have ended before the signal.
    EXPECT_TRUE(isEnded || printed == whole_) << printed.size();
  }

  ModelServer server_{{"--synthetic", "4x5000"}};
  const std::string whole_;
};

TEST_F(EndedListing, IsWholeLinesInAPipe) {
  for (int round = 0; round < 20; ++round) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const Descriptor reader(ends[0]);
    std::string printed;
    const auto take = [&](std::size_t size) {
      std::string bytes(size, '\0');
      const ssize_t count = read(reader.get(), bytes.data(), bytes.size());
      printed.append(bytes, 0, count > 0 ? static_cast<std::size_t>(count) : 0);
      return count > 0;
    };
    pid_t pid = -1;
    {
      const Descriptor writer(ends[1]);
      pid = start(writer.get());
    }
    // The shell fills the pipe and waits, each time in another line.
    for (int read = 0; read < round; ++read) {
      ASSERT_TRUE(take(1000 + static_cast<std::size_t>(round)));
    }
    EXPECT_TRUE(end(pid));
    while (take(65536)) {
    }
    expectWholeLines(printed);
    if (round > 0) {
      EXPECT_FALSE(printed.empty());
    }
  }
}

TEST_F(EndedListing, IsWholeLinesInAFile) {
  const test_support::ScratchDirectory directory;
  for (int round = 1; round <= 20; ++round) {
    const std::string name = directory.write("output", "");
    const Descriptor file(open(name.c_str(), O_RDWR | O_CLOEXEC));
    endWhileWriting(file.get(), round * 20'000);
  }
}

// Other than many file systems, this one stores a write page by page, and ends it between
// two pages.
TEST_F(EndedListing, IsWholeLinesInAFileInMemory) {
  for (int round = 1; round <= 20; ++round) {
    const Descriptor file(memfd_create("output", MFD_CLOEXEC));
    endWhileWriting(file.get(), round * 20'000);
  }
}

/// A shell that gets a signal while it waits for the second of three values, from a server that
/// has them.
class SignalledCommand : public testing::Test {
 protected:
  SignalledCommand() {
    second_.setGetter([this](std::int32_t& value) {
      value = 2;
      signalShell();
      return ModelSrv::ModelRes_Success;
    });
    for (ModelSrv::ModelPart* part :
         std::initializer_list<ModelSrv::ModelPart*>{&first_, &second_, &third_}) {
      EXPECT_EQ(root_.add(part), ModelSrv::ModelRes_Success);
    }
    EXPECT_EQ(root_.startAsServer(port_), ModelSrv::ModelRes_Success);
    pump_.emplace(manager_);
  }

  /// Runs the shell with `output` as its standard output, and returns how it ended.
  int run(int output, int signal, bool isFatal = true) {
    {
      const std::lock_guard lock(mutex_);
      signal_ = signal;
      isFatal_ = isFatal;
      started_.reset();
    }
    const pid_t pid = startCommand({test_support::treescopeProgram(), "-c",
                                    "cd " + port_ + ";get /first;get /second;get /third"},
                                   output);
    {
      const std::lock_guard lock(mutex_);
      started_ = pid;
    }
    changed_.notify_one();
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return status;
  }

  static std::string contentOf(int pipe) {
    EXPECT_EQ(fcntl(pipe, F_SETFL, O_NONBLOCK), 0);
    std::string text(100'000, '\0');
    const ssize_t count = read(pipe, text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }

  struct Pipe {
    Pipe() {
      std::array<int, 2> ends{};
      EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
      reader = Descriptor(ends[0]);
      writer = Descriptor(ends[1]);
    }
    Descriptor reader;
    Descriptor writer;
  };

  const std::string firstLine_ = "/first  [1]\n";
  const std::string allLines_ = "/first  [1]\n/second [2]\n/third  [3]\n";

 private:
  /// Called while the shell waits for the reply.
  void signalShell() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return started_.has_value(); });
    const pid_t pid = *started_;
    EXPECT_EQ(kill(pid, signal_), 0);
    siginfo_t ended{};
    // It ends without the reply. `run` may have reaped it already.
    EXPECT_TRUE(!isFatal_ ||
                waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT) == 0 ||
                errno == ECHILD);
  }

  const std::string port_ = test_support::uniquePortName();
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<pid_t> started_;  // these three: with the mutex
  int signal_ = 0;
  bool isFatal_ = true;
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ValuePart<std::int32_t> first_{1, "first", 1};
  ModelSrv::ValuePart<std::int32_t> second_{2, "second"};
  ModelSrv::ValuePart<std::int32_t> third_{3, "third", 3};
  std::optional<test_support::Pump> pump_;
};

bool endedBy(int status, int signal) {
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

TEST_F(SignalledCommand, LosesNoLineThatItHasPrintedToAPipe) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    const Pipe pipe;
    const int status = run(pipe.writer.get(), signal);
    EXPECT_TRUE(endedBy(status, signal)) << status;
    EXPECT_EQ(contentOf(pipe.reader.get()), firstLine_) << signal;
  }
}

TEST_F(SignalledCommand, LosesNoLineThatItHasPrintedToAFile) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    const Descriptor file(memfd_create("output", MFD_CLOEXEC));
    const int status = run(file.get(), signal);
    EXPECT_TRUE(endedBy(status, signal)) << status;
    std::string printed(100, '\0');
    const ssize_t count = pread(file.get(), printed.data(), printed.size(), 0);
    printed.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    EXPECT_EQ(printed, firstLine_) << signal;
  }
}

TEST_F(SignalledCommand, EndsWithAFullPipeToo) {
  const Pipe pipe;
  ASSERT_EQ(fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK), 0);
  const std::string filler(100'000, 'x');
  const ssize_t size = write(pipe.writer.get(), filler.data(), filler.size());
  ASSERT_GT(size, 0);
  ASSERT_EQ(fcntl(pipe.writer.get(), F_SETFL, 0), 0);
  const int status = run(pipe.writer.get(), SIGTERM);
  EXPECT_TRUE(endedBy(status, SIGTERM)) << status;
  EXPECT_EQ(contentOf(pipe.reader.get()), filler.substr(0, static_cast<std::size_t>(size)));
}

TEST_F(SignalledCommand, EndsIfNoProcessReadsThePipe) {
  Pipe pipe;
  pipe.reader = Descriptor();
  const int status = run(pipe.writer.get(), SIGTERM);
  EXPECT_TRUE(endedBy(status, SIGTERM)) << status;
}

TEST_F(SignalledCommand, GoesOnIfTheSignalIsIgnored) {
  struct sigaction ignored {};
  struct sigaction before {};
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGHUP, &ignored, &before), 0);
  const Pipe pipe;
  const int status = run(pipe.writer.get(), SIGHUP, false);
  ASSERT_EQ(sigaction(SIGHUP, &before, nullptr), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contentOf(pipe.reader.get()), allLines_);
}

}  // namespace
