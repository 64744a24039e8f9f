#include "tests/fault/peer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/support/leak_check.h"
#include "tests/support/process.h"

namespace fault {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view privatePrefix = "/tmp/.krv-";
constexpr std::string_view deleted = " (deleted)";

/// The lines of the status file of one thread that begin with one of `names`.
std::string statusLines(const fs::path& task, const std::vector<std::string>& names) {
  std::ifstream file(task / "status");
  std::string result;
  for (std::string line; std::getline(file, line);) {
    for (const std::string& name : names) {
      if (line.starts_with(name)) {
        result += line + '\n';
      }
    }
  }
  return result;
}

std::set<std::string> privatePipes(pid_t pid) {
  std::set<std::string> result;
  for (const std::string& entry : test_support::openDescriptorsOf(pid)) {
    if (const auto at = entry.find(privatePrefix); at != std::string::npos) {
      result.insert(entry.substr(at));
    }
  }
  return result;
}

}  // namespace

Peer::Peer() : process_({test_support::buildDirectory() + "/tests/fault_peer"}) {}

Peer::~Peer() {
  if (!hasEnded_) {
    resume();
    quit();
  }
}

void Peer::send(const std::string& command) {
  EXPECT_TRUE(process_.write(command + "\n")) << command << process_.errors();
}

std::string Peer::result() {
  const auto line = process_.readLine();
  EXPECT_TRUE(line.has_value()) << "no result; " << process_.errors();
  return line.value_or("no result");
}

std::string Peer::execute(const std::string& command) {
  send(command);
  return result();
}

std::vector<std::string> Peer::run(const std::string& command) {
  send("run " + command);
  std::vector<std::string> lines;
  do {
    lines.push_back(result());
  } while (!lines.back().starts_with("ended ") && lines.back() != "no result");
  return lines;
}

void Peer::suspend() {
  process_.signal(SIGSTOP);
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(pid()), &info, WSTOPPED), 0);
}

void Peer::resume() {
  process_.signal(SIGCONT);
}

void Peer::kill() {
  hasEnded_ = true;
  process_.signal(SIGKILL);
  EXPECT_EQ(process_.waitForExit(), (test_support::ExitStatus{0, SIGKILL}));
}

void Peer::quit() {
  hasEnded_ = true;
  process_.closeInput();
  EXPECT_EQ(process_.waitForExit(), (test_support::ExitStatus{0, 0})) << process_.errors();
}

std::size_t descriptorCount(pid_t pid) {
  return test_support::openDescriptorsOf(pid).size();
}

std::vector<std::string> namedPrivatePipes(pid_t pid) {
  std::vector<std::string> result;
  for (const std::string& path : privatePipes(pid)) {
    if (!path.ends_with(deleted)) {
      result.push_back(path);
    }
  }
  return result;
}

std::vector<std::string> awaitPrivatePipes(pid_t pid) {
  // Three reading ends; the one writing end is opened last.
  const auto areAllOpen = [&] {
    const auto entries = test_support::openDescriptorsOf(pid);
    return std::count_if(entries.begin(), entries.end(), [](const std::string& entry) {
             return entry.find(privatePrefix) != std::string::npos;
           }) == 4;
  };
  EXPECT_TRUE(eventually(areAllOpen));
  return namedPrivatePipes(pid);
}

std::size_t privatePipeCount(pid_t pid) {
  return privatePipes(pid).size();
}

std::size_t residentKiB(pid_t pid) {
  const std::string line = statusLines(fs::path("/proc") / std::to_string(pid), {"VmRSS:"});
  const auto digits = line.find_first_of("0123456789");
  return digits == std::string::npos ? 0 : std::stoul(line.substr(digits));
}

std::string sigpipeState(pid_t pid) {
  const auto has = [](const std::string& line, int signal) {
    const std::string mask = line.substr(line.find_first_of("0123456789abcdef", line.find(':')));
    return (std::stoull(mask, nullptr, 16) >> static_cast<unsigned>(signal - 1) & 1U) != 0;
  };
  std::string result;
  for (const auto& task :
       fs::directory_iterator(fs::path("/proc") / std::to_string(pid) / "task")) {
    std::istringstream lines(
        statusLines(task.path(), {"SigPnd:", "ShdPnd:", "SigBlk:", "SigIgn:", "SigCgt:"}));
    for (std::string line; std::getline(lines, line);) {
      // A thread that is just starting, or belongs to a sanitizer, blocks all signals.
      const bool blocksAll = line.starts_with("SigBlk:") && has(line, SIGTERM);
      result += has(line, SIGPIPE) && !blocksAll ? line + '\n' : "";
    }
  }
  return result;
}

}  // namespace fault
