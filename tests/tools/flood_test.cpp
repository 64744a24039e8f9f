#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <map>

#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"
#include "tests/tools/treectl_fixture.h"

// A watch of everything, under a flood of changes.

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Process;

class Flood : public testing::Test {
 protected:
  static constexpr int parts = 10'000;
  static constexpr int rounds = 20;
  static constexpr std::int32_t last = 777;

  Flood() {
    for (int i = 0; i < parts; ++i) {
      values_.emplace_back(static_cast<ModelSrv::ModelPartId>(i + 1), 'p' + std::to_string(i), 0);
    }
    server_.emplace(name_, [this](test_support::SampleServer& prepared) {
      EXPECT_EQ(prepared.root.add(&node_), ModelSrv::ModelRes_Success);
      for (auto& value : values_) {
        EXPECT_EQ(node_.add(&value), ModelSrv::ModelRes_Success);
      }
    });
  }
  ~Flood() override { server_.reset(); }

  /// Changes every part many times. The last value is the same of all.
  void flood() {
    for (int round = 1; round <= rounds; ++round) {
      for (auto& value : values_) {
        ASSERT_EQ(value.setValue(round == rounds ? last : round), ModelSrv::ModelRes_Success);
      }
    }
  }

  [[nodiscard]] std::vector<std::string> command() const {
    return {test_support::buildDirectory() + "/bin/treectl", "watch", "/" + name_ + "/flood"};
  }

  /// How many parts have the last value in their last line.
  static int countLast(const std::string& text) {
    std::map<std::string_view, std::string_view> values;
    std::string_view rest = text;
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
      const std::string_view line = rest.substr(0, end);
      rest.remove_prefix(end + 1);
      const std::size_t tab = line.find('\t');
      values[line.substr(0, tab)] = line.substr(std::min(line.size(), tab + 1));
    }
    const std::string wanted = std::to_string(last);
    return static_cast<int>(std::count_if(
        values.begin(), values.end(), [&](const auto& value) { return value.second == wanted; }));
  }

  /// Where the memory of a watch of so many parts ends, in kilobytes.
  static void expectBoundedMemory(pid_t pid) {
    if (!test_support::sanitized) {
      EXPECT_LE(test_support::procNumber(pid, "status", "VmHWM:"), 32 * 1024);
    }
  }

  [[nodiscard]] const std::string& name() const { return name_; }
  test_support::ScratchDirectory& files() { return files_; }

 private:
  const std::string name_ = test_support::uniquePortName();
  test_support::ScratchDirectory files_;
  ModelSrv::ModelNode node_{100, "flood"};
  std::deque<ModelSrv::ValuePart<std::int32_t>> values_;
  std::optional<test_support::SampleServer> server_;
};

TEST_F(Flood, LosesNoLastValueInAFile) {
  std::string line = "exec";
  for (const std::string& word : command()) {
    line += ' ' + word;
  }
  Process watch({"/bin/bash", "-c", line + " >" + files().file("log")});
  const auto lines = [&] {
    const std::string text = files().read("log");
    return std::count(text.begin(), text.end(), '\n');
  };
  ASSERT_TRUE(test_support::eventually(
      [&] { return std::filesystem::exists(files().file("log")) && lines() >= parts; }));
  flood();
  EXPECT_TRUE(test_support::eventually([&] { return countLast(files().read("log")) == parts; }));
  expectBoundedMemory(watch.pid());
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitForExit(), (ExitStatus{143, 0}));
}

/// A named pipe that the test reads.
class FloodOfAPipe : public Flood {
 protected:
  FloodOfAPipe() {
    EXPECT_EQ(::mkfifo(pipe_.c_str(), 0600), 0);
    // Open for both, it never ends.
    descriptor_ = test_support::Descriptor(::open(pipe_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    std::string line = "exec";
    for (const std::string& word : command()) {
      line += ' ' + word;
    }
    watch_.emplace(std::vector<std::string>{"/bin/bash", "-c", line + " >" + pipe_});
  }

  /// Waits until the pipe is full.
  void fill() {
    ASSERT_TRUE(test_support::eventually([this] {
      int bytes = 0;
      constexpr int full = 60'000;
      return ::ioctl(descriptor_.get(), FIONREAD, &bytes) == 0 && bytes >= full;
    }));
  }

  std::string read() {
    std::string text(65536, 0);
    const ssize_t count = ::read(descriptor_.get(), text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }

  Process& watch() { return *watch_; }

 private:
  const std::string pipe_ = files().file("pipe");
  test_support::Descriptor descriptor_;
  std::optional<Process> watch_;
};

TEST_F(FloodOfAPipe, BlocksNobodyElseAndKeepsTheLastValues) {
  fill();
  flood();
  EXPECT_EQ(runTreectl({"get", "--timeout", "20", "/" + name() + "/flood/p0"}).output, "777\n");
  std::string text;
  EXPECT_TRUE(test_support::eventually([&] {
    for (std::string more = read(); !more.empty(); more = read()) {
      text += more;
    }
    return countLast(text) == parts;
  }));
  expectBoundedMemory(watch().pid());
}

TEST_F(FloodOfAPipe, EndsAtASignalAlsoIfNobodyReads) {
  fill();
  watch().signal(SIGTERM);
  EXPECT_EQ(watch().waitForExit(), (ExitStatus{143, 0}));
  EXPECT_EQ(watch().errors(), "");
}

}  // namespace
}  // namespace treectl
