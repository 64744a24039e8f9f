#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <latch>
#include <optional>

#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"
#include "tests/tools/treectl_fixture.h"

// Commands that are interrupted, or whose server is, in the middle.

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Finished;
using test_support::Process;

class Interruption : public TreectlTest {
 protected:
  static std::string program() { return treectlProgram(); }

  /// Whether the process has a handler for a signal.
  static bool catches(pid_t process, int signal) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("SigCgt:")) {
        return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
      }
    }
    return false;
  }

  /// How many bytes the process has read from pipes and files.
  static unsigned long long bytesRead(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/io");
    std::string key;
    unsigned long long count = 0;
    file >> key >> count;
    return count;
  }

  /// Sends a signal; the exit status that follows. The thread sanitizer keeps a signal that comes
  /// just before a wait until that ends, as it does by another signal.
  static std::optional<ExitStatus> endBy(Process& process, int signal) {
    process.signal(signal);
    for (int i = 0; test_support::threadSanitized && i < 20; ++i) {
      if (const auto status = process.waitForExit(std::chrono::seconds(2))) {
        return status;
      }
      process.signal(signal);
    }
    return process.waitForExit();
  }

  std::ptrdiff_t fileCount() {
    return std::distance(std::filesystem::directory_iterator(files().path()), {});
  }
};

TEST_F(Interruption, LeavesTheOldDumpIfTheNewOneDoesNotFit) {
  static_cast<void>(files().write("dump.json", "old"));
  const test_support::ModelServer large({"--synthetic", "1x200"});
  // One block of 1024 bytes.
  const Finished finished =
      test_support::run({"/bin/bash", "-c",
                         "ulimit -f 1; exec " + program() + " dump -o " +
                             files().file("dump.json") + " /" + large.name()});
  EXPECT_EQ(finished.status, (ExitStatus{9, 0}));
  EXPECT_EQ(finished.errors, "treectl: " + files().file("dump.json") + ": File too large\n");
  EXPECT_EQ(files().read("dump.json"), "old");
  EXPECT_EQ(fileCount(), 1);
}

TEST_F(Interruption, LeavesTheOldDumpIfItIsEnded) {
  static_cast<void>(files().write("dump.json", "old"));
  server().hang();
  for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
    Process dump({program(), "dump", "--timeout", "60", "-o", files().file("dump.json"),
                  "/" + server().name()});
    dump.signal(signal);
    EXPECT_EQ(dump.waitForExit(), (ExitStatus{0, signal}));
    EXPECT_EQ(files().read("dump.json"), "old");
    EXPECT_EQ(fileCount(), 1);
  }
  server().resume();
}

TEST_F(Interruption, OfADumpPrintsNothingOfIt) {
  test_support::ModelServer large({"--synthetic", "100x1000"});
  for (int i = 0; i < 3; ++i) {
    Process dump({program(), "dump", "/" + large.name()});
    // A page of the tree, of eleven.
    constexpr unsigned pageSize = 256 * 1024;
    ASSERT_TRUE(test_support::eventually([&] { return bytesRead(dump.pid()) > pageSize; }));
    large.kill();
    const auto status = dump.finish();
    if (status != ExitStatus{}) {
      EXPECT_EQ(status, (ExitStatus{4, 0}));
      EXPECT_EQ(dump.output(), "");
      EXPECT_EQ(dump.errors(), "treectl: /" + large.name() +
                                   ": no server serves that name, or there is no connection\n");
    }
    large.restart();
  }
}

TEST_F(Interruption, EndsWhatWaitsForInput) {
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"restore", "-", "/" + server().name()}, {"replay", "-"}}) {
      std::vector<std::string> command{program()};
      command.insert(command.end(), arguments.begin(), arguments.end());
      Process waiting(command);
      ASSERT_TRUE(test_support::eventually([&] { return catches(waiting.pid(), signal); }));
      EXPECT_EQ(endBy(waiting, signal), (ExitStatus{128 + signal, 0})) << arguments.front();
      EXPECT_EQ(waiting.errors(), "");
    }
  }
}

TEST_F(Interruption, EndsWhatWaitsForAServer) {
  server().hang();
  const std::string address = "/" + server().name() + "/drive/speed";
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"watch", address},
        {"record", "-o", files().file("rec"), address}}) {
    std::vector<std::string> command{program(), "--timeout", "600"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Process waiting(command);
    ASSERT_TRUE(test_support::eventually([&] { return catches(waiting.pid(), SIGINT); }));
    EXPECT_EQ(endBy(waiting, SIGINT), (ExitStatus{130, 0})) << arguments.front();
    EXPECT_EQ(waiting.errors(), "");
  }
  server().resume();
}

/// Five parts in a dump, of which the third store lets something happen in the server.
class RestoreInterruption : public Interruption {
 protected:
  RestoreInterruption() {
    std::string parts = "[{\"format\":1,\"base\":\"/x\"}";
    for (const char* const part :
         {R"("/drive/speed","value":1)", R"("/drive/label","value":"a")",
          R"("/drive/limited","value":2)", R"("/drive/x","value":1)", R"("/top","value":"b")"}) {
      parts += std::string(",\n{\"address\":") + part + '}';
    }
    static_cast<void>(files().write("five.json", parts + ']'));
  }

  std::vector<std::string> restore() const { return {program(), "restore", file_, "/" + name_}; }

  const std::string name_ = test_support::uniquePortName();
  const std::string file_ = files().file("five.json");
};

TEST_F(RestoreInterruption, SaysWhatWasStored) {
  std::atomic<pid_t> target{0};
  std::atomic<int> signal{0};
  test_support::SampleServer sample(name_, [&](test_support::SampleServer& prepared) {
    prepared.limited.setStoreCheck([&](const std::int32_t&, ModelSrv::ModelPartIndex) {
      target.wait(0);
      ::kill(target, signal);
      return ModelSrv::ModelRes_Success;
    });
  });
  for (const int number : {SIGINT, SIGTERM}) {
    target = 0;
    signal = number;
    Process process(restore());
    target = process.pid();
    target.notify_all();
    EXPECT_EQ(process.waitForExit(), (ExitStatus{128 + number, 0}));
    EXPECT_THAT(process.errors(),
                testing::MatchesRegex(number == SIGINT ? "stored 3, same 0, .*, left 2\n"
                                                       : "stored 1, same 2, .*, left 2\n"));
    EXPECT_EQ(sample.limited.setValue(7), ModelSrv::ModelRes_Success);
  }
}

TEST_F(RestoreInterruption, EndsAtAStoreOfUnknownOutcome) {
  std::latch isOver(1);
  test_support::SampleServer sample(name_, [&](test_support::SampleServer& prepared) {
    prepared.limited.setStoreCheck([&](const std::int32_t&, ModelSrv::ModelPartIndex) {
      isOver.wait();
      return ModelSrv::ModelRes_Success;
    });
  });
  const Finished finished = test_support::run(restore());
  EXPECT_EQ(finished.status, (ExitStatus{8, 0}));
  EXPECT_THAT(finished.errors,
              testing::MatchesRegex("treectl: /.*/drive/limited: .*\nstored 2, same 0, skipped 0, "
                                    "refused 0, left 2\n"));
  isOver.count_down();
}

TEST_F(RestoreInterruption, OrOfAServerThatDies) {
  // The server is a process of its own, which the third store ends.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    test_support::SampleServer sample(name_, [](test_support::SampleServer& prepared) {
      prepared.limited.setStoreCheck([](const std::int32_t&, ModelSrv::ModelPartIndex) {
        ::_exit(0);
        return ModelSrv::ModelRes_Success;
      });
    });
    while (true) {
      ::pause();
    }
  }
  EXPECT_EQ(runTreectl({"servers", "--wait", name_, "--timeout", "30", "-q"}).status, ExitStatus{});
  const Finished set = test_support::run({program(), "set", "/" + name_ + "/drive/limited", "3"});
  EXPECT_EQ(set.status, (ExitStatus{8, 0})) << set.errors;
  EXPECT_THAT(set.errors, testing::MatchesRegex("treectl: /.*/drive/limited: .*\n"));
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(::unlink(test_support::mailboxPath(name_).c_str()), 0);
}

}  // namespace
}  // namespace treectl
