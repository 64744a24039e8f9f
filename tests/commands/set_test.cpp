#include "shell/options.h"
#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;

class Set : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }
  void TearDown() override { forceLoadFlag = false; }
};

class Str : public Set {};

TEST_F(Set, StoresAndPrintsTheValue) {
  EXPECT_EQ(run("set 5 drive/speed"), (CommandResult{1, "/drive/speed    [5]\n"}));
  EXPECT_EQ(server_.speed.value(), 5);
  EXPECT_EQ(run("set 9 ~drive/noname-12"), (CommandResult{1, "/drive/noname-12    [9]\n"}));
  EXPECT_EQ(run("set 8 drive/raw[1]"), (CommandResult{1, "/drive/raw[1]   [8]\n"}));
  EXPECT_THAT(server_.raw.values(), ElementsAre(1, 8, 3));
  EXPECT_EQ(run("set 6 drive/speed[4]"), (CommandResult{1, "/drive/speed[4] [6]\n"}));
  EXPECT_EQ(run("set true drive/secret"), (CommandResult{1, "/drive/secret   [true]\n"}));
}

TEST_F(Set, StoresIntoTheCurrentPart) {
  ASSERT_EQ(run("cd drive/speed").result, 1);
  EXPECT_EQ(run("set 5"), (CommandResult{1, "/drive/speed    [5]\n"}));
  EXPECT_EQ(run("set 6 anything"), (CommandResult{1, "/drive/speed    [6]\n"}));
  EXPECT_EQ(run("set 7 [2]"), (CommandResult{1, "/drive/speed[2] [7]\n"}));
}

TEST_F(Set, StoresIntoAnElementOfTheCurrentPart) {
  ASSERT_EQ(run("cd drive/raw").result, 1);
  EXPECT_EQ(run("set 5 [2]"), (CommandResult{1, "/drive/raw[2]   [5]\n"}));
  EXPECT_EQ(run("set 6 x"), (CommandResult{4, "ERROR: NotFound\n"}));
  EXPECT_THAT(server_.raw.values(), ElementsAre(1, 2, 5));
  ASSERT_EQ(run("cd ../gains").result, 1);
  EXPECT_EQ(run("set 4 i"), (CommandResult{1, "/drive/gains[1] [4]\n"}));
  EXPECT_THAT(server_.gains.values(), ElementsAre(1.5, 4));
}

TEST_F(Set, ResolvesAnElementForPrintingFromTheCurrentDirectory) {
  EXPECT_EQ(run("set 4 /drive/gains/[1]"), (CommandResult{3, ""}));
  EXPECT_THAT(server_.gains.values(), ElementsAre(1.5, 4));
}

TEST_F(Set, RequiresAnElementForAnArray) {
  EXPECT_EQ(run("set 5 drive/gains"), (CommandResult{4, "ERROR: NotFound\n"}));
  EXPECT_EQ(run("set 5 drive/gains[]"), (CommandResult{3, ""}));
  ASSERT_EQ(run("cd drive/gains").result, 1);
  EXPECT_EQ(run("set 5"), (CommandResult{4, "ERROR: NotFound\n"}));
  EXPECT_EQ(run("set 5 d"), (CommandResult{4, "ERROR: NotFound\n"}));
  EXPECT_THAT(server_.gains.values(), ElementsAre(1.5, 0.25));
}

TEST_F(Set, StoresNothingAfterTheLastElement) {
  EXPECT_EQ(run("set 5 drive/raw[3]"), (CommandResult{1, "/drive/raw[3]   []\n"}));
  EXPECT_EQ(run("set 5 drive/raw[65534]"), (CommandResult{1, "/drive/raw[65534]   []\n"}));
  EXPECT_THAT(server_.raw.values(), ElementsAre(1, 2, 3));
}

TEST_F(Set, TreatsAnIndexThatIsNoNumberAsZero) {
  EXPECT_EQ(run("set 5 drive/raw[x]"), (CommandResult{1, "/drive/raw[x]   [5]\n"}));
  EXPECT_THAT(server_.raw.values(), ElementsAre(5, 2, 3));
}

TEST_F(Set, PrintsTheOldValueAfterAStoreThatTheServerRefused) {
  EXPECT_EQ(run("set x drive/speed"), (CommandResult{1, "/drive/speed    [42]\n"}));
  EXPECT_EQ(run("set 1 drive/serial"), (CommandResult{1, "/drive/serial   [A-17]\n"}));
  EXPECT_EQ(run("set 11 drive/limited"), (CommandResult{1, "/drive/limited  [1]\n"}));
  EXPECT_EQ(run("set 10 drive/limited"), (CommandResult{1, "/drive/limited  [10]\n"}));
  EXPECT_EQ(run("set 300 drive/raw[0]"), (CommandResult{1, "/drive/raw[0]   [1]\n"}));
}

TEST_F(Set, PassesTheLoadersFlagWithTheOption) {
  EXPECT_EQ(run("set 1 drive/offset"), (CommandResult{1, "/drive/offset   [0]\n"}));
  EXPECT_EQ(run("set -c 1 drive/offset"), (CommandResult{1, "/drive/offset   [0]\n"}));
  EXPECT_EQ(run("set -l 1 drive/offset"), (CommandResult{1, "/drive/offset   [1]\n"}));
  EXPECT_EQ(run("set 2 drive/offset -cl"), (CommandResult{1, "/drive/offset   [2]\n"}));
  EXPECT_EQ(run("str 3 drive/offset"), (CommandResult{1, "/drive/offset   [2]\n"}));
  forceLoadFlag = true;
  EXPECT_EQ(run("set 3 drive/offset"), (CommandResult{1, "/drive/offset   [3]\n"}));
}

TEST_F(Set, TreatsAValueThatBeginsWithADashAsOptions) {
  ASSERT_EQ(run("cd drive/speed").result, 1);
  EXPECT_EQ(run("set -5 7"), (CommandResult{1, "/drive/speed    [7]\n"}));
}

TEST_F(Set, StoresNothingIfThereIsNoPart) {
  for (const char* path : {"nothing", "drive", "drive/", "x/y", "/", "..", "drive/noname-1", ""}) {
    EXPECT_EQ(run(std::string("set 1 ") + path), (CommandResult{3, ""})) << path;
  }
}

TEST_F(Set, StoresNothingWithoutAServer) {
  ASSERT_EQ(run("cd drive/speed").result, 1);
  server_.end();
  EXPECT_EQ(run("set 1"), (CommandResult{3, ""}));
  EXPECT_EQ(run("str 1 /drive/label"), (CommandResult{3, ""}));
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_EQ(run("set 1 drive/speed"), (CommandResult{3, ""}));
}

TEST_F(Set, RequiresAValue) {
  EXPECT_EQ(run("set"), (CommandResult{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("str"), (CommandResult{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("set 1 a b"), (CommandResult{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("set -r 1 a"), (CommandResult{5, "ERROR: OptionError\n"}));
}

TEST_F(Str, StoresAnyText) {
  EXPECT_EQ(run("str \"three more words\" drive/label"),
            (CommandResult{1, "/drive/label    [three more words]\n"}));
  EXPECT_EQ(run("str -5 drive/label"), (CommandResult{1, "/drive/label    [-5]\n"}));
  EXPECT_EQ(run("str \"\" drive/label"), (CommandResult{1, "/drive/label    []\n"}));
  EXPECT_EQ(run("str \xff\x1b drive/label extra words"),
            (CommandResult{1, "/drive/label    [\xff\x1b]\n"}));
  EXPECT_EQ(server_.label.value(), "\xff\x1b");
}

TEST_F(Str, PassesTheTextAfterItsLength) {
  struct Recorder : Scope {
    using Scope::Scope;
    int doSet(unsigned options, const char* value, const char* path) override {
      seen.push_back(std::to_string(options) + ":" + value + ":" + (path == nullptr ? "-" : path));
      return 3;
    }
    std::vector<std::string> seen;
  } recorder(&manager_, 1);
  EXPECT_EQ(recorder.doStr("hello world", "x"), 3);
  EXPECT_EQ(recorder.doStr("", nullptr), 3);
  EXPECT_EQ(recorder.doStr("\xc3\xa9\n", "x"), 3);
  EXPECT_THAT(recorder.seen, ElementsAre("0:11\nhello world:x", "0:0\n:-", "0:3\n\xc3\xa9\n:x"));
}

TEST_F(Str, StoresALongText) {
  const std::string text(1000000, 'x');
  EXPECT_EQ(run("str " + text + " drive/label").result, 1);
  EXPECT_EQ(server_.label.value(), text);
}

}  // namespace
}  // namespace treescope::test
