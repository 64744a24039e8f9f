#include "tests/servers/server_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/port_name.h"
#include "tests/support/programs.h"

namespace modelsrvd {

namespace {

std::vector<std::string> commandFor(const std::vector<std::string>& words) {
  std::vector<std::string> command{test_support::modelsrvdProgram()};
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

std::vector<std::string> named(std::vector<std::string> words, const std::string& name) {
  words.insert(words.end(), {"--name", name});
  return words;
}

}  // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& switches, bool mergeErrors)
    : name_(test_support::uniquePortName()),
      process_(commandFor(named(switches, name_)), {{}, {}, mergeErrors}) {
  EXPECT_EQ(process_.readLine(), "ready " + name_) << process_.errors();
}

bool ServerProcess::ends(int signal) {
  process_.signal(signal);
  const auto status = process_.waitForExit();
  return status == test_support::ExitStatus{} && process_.errors().empty();
}

ScratchFile::ScratchFile(const std::string& text)
    : path_(testing::TempDir() + "modelsrvd_test_XXXXXX") {
  const int descriptor = ::mkstemp(path_.data());
  EXPECT_GE(descriptor, 0);
  ::close(descriptor);
  write(text);
}

ScratchFile::~ScratchFile() {
  std::filesystem::remove(path_);
}

void ScratchFile::write(const std::string& text) const {
  std::ofstream(path_, std::ios::trunc) << text;
}

test_support::Finished runServer(const std::vector<std::string>& words) {
  return test_support::run(commandFor(words));
}

}  // namespace modelsrvd
