#include "servers/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <variant>

namespace modelsrvd {
namespace {

class DescriptionFiles : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "modelsrvd_files_XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static std::string allOf(FileReader& file) {
    std::string text;
    for (std::string_view piece = file.next(); !piece.empty(); piece = file.next()) {
      text += piece;
    }
    return text;
  }

  static std::string errorOf(const std::string& path, std::size_t most) {
    FileReader file(path, most);
    return file.error() ? file.error()->text : "read " + allOf(file);
  }

  std::string folder_;
};

TEST_F(DescriptionFiles, AFileIsReadCompletely) {
  const std::string text(200000, 'x');
  std::ofstream(folder_ + "/a") << text;
  FileReader file(folder_ + "/a", text.size());
  EXPECT_EQ(allOf(file), text);
  EXPECT_FALSE(file.error());
  EXPECT_EQ(file.next(), "") << "next() after the end";
}

TEST_F(DescriptionFiles, AFileIsReadInPieces) {
  std::ofstream(folder_ + "/a") << std::string(200000, 'x');
  FileReader file(folder_ + "/a", 200000);
  const std::size_t first = file.next().size();
  EXPECT_GT(first, 0U);
  EXPECT_LE(first, 65536U);
}

TEST_F(DescriptionFiles, AFileThatGrowsBeyondTheLimitIsAnError) {
  std::ofstream out(folder_ + "/growing");
  out << "12345" << std::flush;
  FileReader file(folder_ + "/growing", 10);
  EXPECT_EQ(file.next(), "12345");
  out << "67890" << std::flush;
  EXPECT_EQ(file.next(), "67890");
  out << "1" << std::flush;
  EXPECT_EQ(file.next(), "");
  ASSERT_TRUE(file.error());
  EXPECT_EQ(file.error()->text, folder_ + "/growing: longer than 10 bytes");
}

TEST_F(DescriptionFiles, AnErrorNamesTheFile) {
  EXPECT_EQ(errorOf(folder_ + "/none", 10), folder_ + "/none: No such file or directory");
  EXPECT_EQ(errorOf(folder_, 10), folder_ + ": not a regular file");
  std::ofstream(folder_ + "/long") << "12345678901";
  EXPECT_EQ(errorOf(folder_ + "/long", 10), folder_ + "/long: longer than 10 bytes");
  EXPECT_EQ(errorOf(folder_ + "/a\nb", 10), folder_ + "/a\\x0ab: No such file or directory");
}

TEST_F(DescriptionFiles, APipeWithoutAWriterDoesNotBlock) {
  const std::string path = folder_ + "/pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(errorOf(path, 10), path + ": not a regular file");
}

TEST(FindGroup, AcceptsANameOrANumber) {
  EXPECT_EQ(std::get<gid_t>(findGroup("root")), 0U);
  EXPECT_EQ(std::get<gid_t>(findGroup("54321")), 54321U);
}

TEST(FindGroup, RejectsAnythingElse) {
  for (const char* const word : {"no such group", "-1", "4294967295", "12x"}) {
    const auto result = findGroup(word);
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << word;
    EXPECT_EQ(std::get<Error>(result).text, std::string("--group: unknown group \"") + word + "\"");
  }
}

}  // namespace
}  // namespace modelsrvd
