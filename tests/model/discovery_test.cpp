#include "model/discovery.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace treescope {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Discovery : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "discovery_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }

  void TearDown() override { std::filesystem::remove_all(directory_); }

  void makePipe(const std::string& name) const {
    ASSERT_EQ(mkfifo((directory_ + "/" + name).c_str(), 0600), 0) << name;
  }

  void makeFile(const std::string& name) const {
    ASSERT_TRUE(std::ofstream(directory_ + "/" + name)) << name;
  }

  [[nodiscard]] std::vector<std::string> offered() const {
    std::vector<std::string> names;
    for (const char* key : serverKeys) {
      EXPECT_EQ(collectServerNames(names, directory_.c_str(), key), 1);
    }
    return names;
  }

  [[nodiscard]] std::vector<std::string> listed() const {
    ListingNode listing;
    for (const char* key : serverKeys) {
      EXPECT_EQ(listServerNodes(listing, directory_.c_str(), key), 1);
      EXPECT_EQ(listing.name, directory_);
    }
    std::vector<std::string> names;
    for (const ListingNode& child : listing.children) {
      EXPECT_EQ(child.value, std::nullopt);
      EXPECT_EQ(child.subscribedMark, 0U);
      EXPECT_EQ(child.kindMark, 0U);
      EXPECT_THAT(child.children, IsEmpty());
      names.push_back(child.name.value_or("no name"));
    }
    return names;
  }

  std::string directory_;
};

TEST_F(Discovery, OffersAServerOnceForEachOfItsPipes) {
  makePipe("Model_a.fifo");
  makePipe("Model_a.efifo");
  std::vector<std::string> names;
  EXPECT_EQ(collectServerNames(names, directory_.c_str(), "modelsrv"), 1);
  EXPECT_THAT(names, IsEmpty());
  EXPECT_EQ(collectServerNames(names, directory_.c_str(), "Model"), 1);
  EXPECT_THAT(names, ElementsAre("Model_a", "Model_a"));
  EXPECT_THAT(listed(), ElementsAre("Model_a", "Model_a"));
}

TEST_F(Discovery, SkipsFilesThatAreNoPipeOfAServer) {
  makePipe("Model_b");
  makePipe("Model_c.FIFO");
  makePipe("Model_d.fifo.old");
  makePipe("other.fifo");
  std::filesystem::create_directory(directory_ + "/Model_e.fifo");
  std::filesystem::create_symlink("nowhere", directory_ + "/Model_f.fifo");
  EXPECT_THAT(offered(), IsEmpty());
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Discovery, AcceptsEveryTypeOfFileExceptDirectories) {
  makeFile("Model_file.fifo");
  makePipe("Model_pipe.efifo");
  EXPECT_THAT(offered(), UnorderedElementsAre("Model_file", "Model_pipe"));
}

TEST_F(Discovery, ListsFewerNamesThanItOffers) {
  makePipe("x.Model.fifo");
  makePipe("modelsrv1.fifo");
  makePipe("xmodelsrvy.fifo");
  makePipe("aModel_b.fifo");
  EXPECT_THAT(offered(), UnorderedElementsAre("x.Model", "modelsrv1", "xmodelsrvy", "aModel_b"));
  EXPECT_THAT(listed(), ElementsAre("x.Model"));
}

TEST_F(Discovery, ReportsANameWithBothKeysTwice) {
  makePipe("Model_modelsrv.fifo");
  EXPECT_THAT(offered(), ElementsAre("Model_modelsrv", "Model_modelsrv"));
  EXPECT_THAT(listed(), ElementsAre("Model_modelsrv", "Model_modelsrv"));
}

TEST_F(Discovery, RemovesOnlyTheExtension) {
  makePipe("Model_a.b.fifo");
  makePipe("Model_.efifo");
  EXPECT_THAT(offered(), UnorderedElementsAre("Model_a.b", "Model_"));
}

TEST_F(Discovery, FindsEveryServerWithoutAKey) {
  makePipe("any.fifo");
  std::vector<std::string> names;
  EXPECT_EQ(collectServerNames(names, directory_.c_str(), nullptr), 1);
  EXPECT_THAT(names, ElementsAre("any"));
}

TEST_F(Discovery, KeepsBytesThatAreNotText) {
  makePipe("Model_ *\x80\xff.fifo");
  EXPECT_THAT(listed(), ElementsAre("Model_ *\x80\xff"));
}

TEST_F(Discovery, PassesOverFilesWhoseNamesNoPortCanHave) {
  makePipe(".fifo");
  makePipe(".Model.fifo");
  makePipe("Model_a;b.fifo");
  makePipe("Model_\x7f.fifo");
  for (char control = 1; control < 0x20; ++control) {
    makePipe(std::string("Model_") + control + ".fifo");
    makeFile(std::string("modelsrv") + control + ".efifo");
  }
  makePipe("Model_" + std::string(195, 'n') + ".fifo");
  const std::string longest = "Model_" + std::string(194, 'n');
  makePipe(longest + ".fifo");
  EXPECT_THAT(offered(), ElementsAre(longest));
  EXPECT_THAT(listed(), ElementsAre(longest));
  std::vector<std::string> names;
  EXPECT_EQ(collectServerNames(names, directory_.c_str(), nullptr), 1);
  EXPECT_THAT(names, ElementsAre(longest));
}

TEST_F(Discovery, LeavesTheListUnchangedIfTheDirectoryCannotBeOpened) {
  std::vector<std::string> names{"kept"};
  const std::string missing = directory_ + "/missing";
  EXPECT_EQ(collectServerNames(names, missing.c_str(), "Model"), 0);
  ListingNode listing;
  EXPECT_EQ(listServerNodes(listing, missing.c_str(), "Model"), 0);
  EXPECT_EQ(listing.name, std::nullopt);
  EXPECT_THAT(listing.children, IsEmpty());
  EXPECT_THAT(names, ElementsAre("kept"));
}

TEST_F(Discovery, AppendsToTheList) {
  makePipe("Model_a.fifo");
  std::vector<std::string> names{"first"};
  EXPECT_EQ(collectServerNames(names, directory_.c_str(), "Model"), 1);
  EXPECT_THAT(names, ElementsAre("first", "Model_a"));
}

TEST(IsListedServerName, ChecksTheBeginningAndTheExtension) {
  for (const char* name : {"Model_", "Model_a", "x.Model", ".Model", "a.b.Model", "Model_.x"}) {
    EXPECT_TRUE(isListedServerName(name)) << name;
  }
  for (const char* name : {"", "Model", "Model.x", "xModel_a", "model_a", "x.model", "x.Model.y",
                           "xModel", "Model-a"}) {
    EXPECT_FALSE(isListedServerName(name)) << name;
  }
}

}  // namespace
}  // namespace treescope
