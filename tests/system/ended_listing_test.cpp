#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>

#include "tests/support/descriptor.h"
#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

// What a listing has printed when a signal ends the shell.

namespace {

using test_support::Descriptor;
using test_support::ModelServer;

class EndedListing : public testing::Test {
 protected:
  EndedListing() : whole_(test_support::run(command()).output) {}

  std::vector<std::string> command() {
    return {test_support::treescopeProgram(), "-c",
            "cd " + server_.name() + ";ls -lr;get /group_000/item_0000;ls -lr"};
  }

  /// Starts the shell with `output` as its standard output.
  [[nodiscard]] pid_t start(int output) {
    std::vector<std::string> words = command();
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

  static void end(pid_t pid) {
    int status = 0;
    EXPECT_EQ(kill(pid, SIGTERM), 0);
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
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
    end(pid);
    ASSERT_EQ(fstat(file, &status), 0);
    std::string printed(static_cast<std::size_t>(status.st_size), '\0');
    ASSERT_EQ(pread(file, printed.data(), printed.size(), 0), status.st_size);
    expectWholeLines(printed);
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
    end(pid);
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

}  // namespace
