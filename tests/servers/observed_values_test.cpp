#include "tests/servers/observed_values.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "servers/value_file.h"

// What a client gets of values in files and simulated values while it watches them.

namespace modelsrvd {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

namespace fs = std::filesystem;

/// Observed after each event of the file, or by a period.
class StoredFileValues : public ObservedValues, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    write("v", "1\n");
    serve(entry("v", GetParam()));
    client_.emplace(name_);
  }
  void store(const std::string& value) {
    EXPECT_EQ(client_->store("/", value), ModelSrv::ModelRes_Success);
  }
  void observeLater() {
    observe();
    tickAll(Clock::now() + seconds(2));
  }

 private:
  std::optional<test_support::TreeClient> client_;
};

TEST_P(StoredFileValues, ChangeOnce) {
  store("2");
  observeLater();
  EXPECT_EQ(changes(1), 1U);
  EXPECT_EQ(text(1), "2");
  store("2");
  observeLater();
  EXPECT_EQ(changes(1), 1U) << "the same value";
}

TEST_P(StoredFileValues, ChangeAgainWhenAnotherProgramPutsTheOldValueBack) {
  store("2");
  write("v", "1\n");
  observeLater();
  EXPECT_EQ(changes(1), 2U);
  EXPECT_EQ(text(1), "1");
}

TEST_P(StoredFileValues, ChangeOnceIfTheFileHasTheStoredValueAlready) {
  write("v", "2\n");
  store("2");
  observeLater();
  EXPECT_EQ(changes(1), 1U);
  EXPECT_EQ(text(1), "2");
}

INSTANTIATE_TEST_SUITE_P(Each, StoredFileValues, testing::Values("", R"(, "period": 1000)"),
                         [](const auto& test) {
                           return std::string(test.index == 0 ? "WithEvents" : "WithPeriod");
                         });

TEST_F(ObservedValues, AreReadInCallsOfBoundedTime) {
  std::string entries;
  constexpr ModelSrv::ModelPartId parts = 10000;
  for (int i = 0; i < parts; ++i) {
    entries += std::string(i == 0 ? "" : ",") + R"({"type": "double", "simulate": "ramp"})";
  }
  serve(entries);
  const auto later = Clock::now() + seconds(2);
  tick(later);
  EXPECT_TRUE(isDue(later)) << "the first call has read all of them";
  tickAll(later);
  EXPECT_FALSE(isDue(later));
}

TEST_F(ObservedValues, OfManyChangedFilesAreReadInCallsOfBoundedTime) {
  std::string entries;
  constexpr ModelSrv::ModelPartId parts = 300;
  for (int i = 0; i < parts; ++i) {
    write(std::to_string(i), "1\n");
    entries += (i == 0 ? "" : ",") + entry(std::to_string(i));
  }
  serve(entries);
  for (const char* text : {"2\n", "3\n"}) {
    for (int i = 0; i < parts; ++i) {
      write(std::to_string(i), text);
    }
  }
  takeFileChanges(start_);
  EXPECT_TRUE(isDue(start_)) << "the first call has read all of them";
  observe();
  for (int i = 1; i <= parts; i += parts / 10) {
    EXPECT_EQ(changes(static_cast<ModelSrv::ModelPartId>(i)), 1U);
  }
}

TEST_F(ObservedValues, FollowADirectoryThatIsALink) {
  fs::create_directory(path("a"));
  fs::create_directory(path("b"));
  write("a/v", "1\n");
  write("b/v", "2\n");
  fs::create_directory_symlink(path("a"), path("current"));
  serve(entry("current/v"));
  fs::create_directory_symlink(path("b"), path("next"));
  fs::rename(path("next"), path("current"));
  observe();
  tickAll(Clock::now() + seconds(2));
  EXPECT_EQ(changes(1), 1U);
  EXPECT_EQ(text(1), "2");
}

TEST_F(ObservedValues, FollowAPathWhoseUpperDirectoryIsRenamed) {
  fs::create_directories(path("top/below"));
  write("top/below/v", "1\n");
  write("beside", "1\n");
  serve(entry("top/below/v") + "," + entry("beside"));
  fs::rename(path("top"), path("before"));
  fs::create_directories(path("top/below"));
  write("top/below/v", "2\n");
  observe();
  tickAll(Clock::now() + seconds(20));
  EXPECT_EQ(changes(1), 1U);
  EXPECT_EQ(text(1), "2");
  write("top/below/v", "3\n");
  observe();
  EXPECT_EQ(text(1), "3") << "the new directory is observed";
  EXPECT_EQ(changes(2), 0U);
}

TEST_F(ObservedValues, ChangeWhenTheSourceIsReplacedByTheDefaultOfTheType) {
  write("v", "1\n");
  serve(entry("v") + R"(, {"type": "int32", "value": 1})");
  reload(R"({"type": "int32", "value": 0}, {"type": "int32", "value": 1})");
  EXPECT_EQ(changes(1), 1U);
  EXPECT_EQ(text(1), "0");
  EXPECT_EQ(changes(2), 0U);
  reload(entry("v"));
  EXPECT_EQ(changes(1), 2U);
  reload(R"({"type": "int32", "value": 5})");
  EXPECT_EQ(changes(1), 3U);
  EXPECT_EQ(text(1), "5");
}

TEST(ValueFile, ReportsChangesOnlyIfItsPathIsTheRealOne) {
  const test_support::ScratchDirectory scratch;
  const std::string real = fs::canonical(scratch.path());
  fs::create_directory(real + "/a");
  fs::create_directory_symlink(real + "/a", real + "/link");
  EXPECT_TRUE(reportsChanges(real + "/a/v"));
  EXPECT_TRUE(reportsChanges("/v"));
  EXPECT_FALSE(reportsChanges(real + "/link/v"));
  EXPECT_FALSE(reportsChanges(real + "/a/../a/v"));
  EXPECT_FALSE(reportsChanges(real + "/missing/v"));
  EXPECT_FALSE(reportsChanges("/proc/self/comm"));
}

}  // namespace
}  // namespace modelsrvd
