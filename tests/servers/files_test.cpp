#include "servers/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <variant>

namespace modelsrvd {
namespace {

class FilesTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "modelsrvd_files_XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static std::string failureOf(const std::string& path, std::size_t most) {
    const auto outcome = readFile(path, most);
    const auto* failure = std::get_if<Failure>(&outcome);
    return failure == nullptr ? "read" : failure->text;
  }

  std::string folder_;
};

TEST_F(FilesTest, AFileIsReadWhole) {
  const std::string text(200000, 'x');
  std::ofstream(folder_ + "/a") << text;
  const auto outcome = readFile(folder_ + "/a", 200000);
  ASSERT_TRUE(std::holds_alternative<std::string>(outcome));
  EXPECT_EQ(std::get<std::string>(outcome), text);
}

TEST_F(FilesTest, WhatCannotBeReadIsNamed) {
  EXPECT_EQ(failureOf(folder_ + "/none", 10), folder_ + "/none: No such file or directory");
  EXPECT_EQ(failureOf(folder_, 10), folder_ + ": not a regular file");
  std::ofstream(folder_ + "/long") << "12345678901";
  EXPECT_EQ(failureOf(folder_ + "/long", 10), folder_ + "/long: longer than 10 bytes");
  EXPECT_EQ(failureOf(folder_ + "/a\nb", 10), folder_ + "/a\\x0ab: No such file or directory");
}

TEST_F(FilesTest, APipeWithoutAWriterIsRefusedAtOnce) {
  const std::string path = folder_ + "/pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(failureOf(path, 10), path + ": not a regular file");
}

TEST(FindGroup, TakesANameOrANumber) {
  EXPECT_EQ(std::get<gid_t>(findGroup("root")), 0U);
  EXPECT_EQ(std::get<gid_t>(findGroup("54321")), 54321U);
}

TEST(FindGroup, RefusesWhatIsNeither) {
  for (const char* const word : {"no such group", "-1", "4294967295", "12x"}) {
    const auto outcome = findGroup(word);
    ASSERT_TRUE(std::holds_alternative<Failure>(outcome)) << word;
    EXPECT_EQ(std::get<Failure>(outcome).text,
              std::string("--group: there is no group \"") + word + "\"");
  }
}

}  // namespace
}  // namespace modelsrvd
