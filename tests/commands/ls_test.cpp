#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tests/commands/scope_fixture.h"
#include "tests/support/process.h"

namespace treescope::test {
namespace {

const std::string off = "\033[39m";

/// A tree with a node that has a part, an array and a node.
class Ls : public ScopeFixture {
 protected:
  void SetUp() override {
    for (ModelSrv::ModelPart* part : std::initializer_list<ModelSrv::ModelPart*>{&v_, &g_, &n_}) {
      ASSERT_EQ(box_.add(part), ModelSrv::ModelRes_Success);
    }
    ASSERT_EQ(n_.add(&w_), ModelSrv::ModelRes_Success);
    ASSERT_EQ(server_.drive.add(&box_), ModelSrv::ModelRes_Success);
    connect();
  }

  ModelSrv::ModelNode box_{30, "box"};
  ModelSrv::ModelNode n_{3, "n"};
  ModelSrv::ValuePart<std::int32_t> v_{1, "v", 1};
  ModelSrv::ArrayPart<double> g_{2, "g", {1.5, 0.25}, {"p", "i"}};
  ModelSrv::ValuePart<std::int32_t> w_{1, "w", 2};
};

TEST_F(Ls, HasFourLayoutsWithAndWithoutKinds) {
  struct Case {
    std::string options;
    std::string output;
  };
  const std::string tree = "+-- v\n+-- g[0](p)\n+-- g[1](i)\n+-- n/\n    +-- w  \n";
  const std::string longTree =
      "+-- v        [1]\n+-- g[0](p)  [1.5]\n+-- g[1](i)  [0.25]\n+-- n/\n    +-- w  [2]\n";
  const std::string kindTree =
      "+-- v\n+-- g[0](p)\n" + off + "+-- g[1](i)\n" + off + "+-- n/\n" + off + "    +-- w  \n";
  const std::string kindLongTree = "+-- v        [1]\n+-- g[0](p)  [1.5]\n" + off +
                                   "+-- g[1](i)  [0.25]\n" + off + "+-- n/\n" + off +
                                   "    +-- w  [2]\n";
  const Case cases[] = {
      {"", "v   \ng/  \nn/  \n"},
      {"-l ", "v   [1]\ng/  \nn/  \n"},
      {"-r ", tree},
      {"-rl ", longTree},
      {"-c ", "v   \ng/  \n" + off + "n/  \n" + off},
      {"-lc ", "v   [1]\ng/  \n" + off + "n/  \n" + off},
      {"-rc ", kindTree},
      {"-rlc ", kindLongTree},
  };
  for (const Case& test : cases) {
    for (const char* more : {"", "-m "}) {
      const std::string command = "ls " + test.options + more + "/drive/box";
      EXPECT_EQ(run(command), (CommandResult{1, test.output})) << command;
    }
  }
}

TEST_F(Ls, MarksSubscribedPartsButNotFlattenedElements) {
  const std::string bold = "\033[22m";
  ASSERT_EQ(run("eu drive/box/v").result, 1);
  ASSERT_EQ(run("eu drive/box/g").result, 1);
  EXPECT_EQ(run("ls drive/box").output, "v   \n" + bold + "g/  \n" + bold + "n/  \n");
  EXPECT_EQ(run("ls -c drive/box").output,
            "v   \n" + bold + "g/  \n" + bold + off + "n/  \n" + off);
  EXPECT_EQ(run("ls -r drive/box").output,
            "+-- v\n" + bold + "+-- g[0](p)\n+-- g[1](i)\n+-- n/\n    +-- w  \n");
  EXPECT_EQ(run("ls -l drive/box/v").output, "v    [1]\n" + bold);
}

TEST_F(Ls, ListsASinglePart) {
  struct Case {
    std::string command;
    std::string output;
  };
  const Case cases[] = {
      {"ls drive/box/v", ""},
      {"ls -r drive/box/v", ""},
      {"ls -l drive/box/v", "v    [1]\n"},
      {"ls -rl drive/box/v", ""},
      {"ls drive/box/g", "[0](p)  \n[1](i)  \n"},
      {"ls -r drive/box/g", "+-- [0](p)\n+-- [1](i)\n"},
      {"ls -l drive/box/g", "[0](p)  [1.5]\n[1](i)  [0.25]\n"},
      {"ls -rl drive/box/g", "+-- [0](p)  [1.5]\n+-- [1](i)  [0.25]\n"},
      {"ls -l /drive/raw", "[0]  [1]\n[1]  [2]\n[2]  [3]\n"},
      {"ls -l top", "top    [line break]\n"},
      {"ls -l empty", "empty    []\n"},
      {"ls -l drive/noname-12", "noname-12    [7]\n"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(run(test.command), (CommandResult{1, test.output})) << test.command;
  }
  ASSERT_EQ(run("cd drive/box/v").result, 1);
  EXPECT_EQ(run("ls"), (CommandResult{1, ""}));
  EXPECT_EQ(run("ls -l"), (CommandResult{1, "v    [1]\n"}));
}

TEST_F(Ls, ResolvesPathsLikeEveryCommand) {
  const CommandResult box{1, "v   \ng/  \nn/  \n"};
  EXPECT_EQ(run("ls ~drive/box"), box);
  EXPECT_EQ(run("ls //drive//box/"), box);
  EXPECT_EQ(run("ls /drive/noname-30"), box);
  ASSERT_EQ(run("cd drive/box/n").result, 1);
  EXPECT_EQ(run("ls .."), box);
  EXPECT_EQ(run("ls"), (CommandResult{1, "w  \n"}));
  EXPECT_EQ(run("ls \"\""), (CommandResult{1, "w  \n"}));
}

TEST_F(Ls, DropsTheEarlierListingIfThePathDoesNotResolve) {
  ASSERT_EQ(run("eu drive/box/v").result, 1);
  ASSERT_NE(run("ls -lc drive/box/v").output, "");
  EXPECT_EQ(run("ls -lc nothing"), (CommandResult{1, "notfound    [nodata]\n"}));
  ASSERT_NE(run("ls drive/box").output, "");
  for (const char* options : {"", "-r ", "-rl ", "-c "}) {
    EXPECT_EQ(run(std::string("ls ") + options + "nothing"), (CommandResult{1, ""})) << options;
  }
  EXPECT_EQ(run("ls drive/../.."), (CommandResult{1, ""}));
}

TEST_F(Ls, ListsNothingAfterTheServerHasStopped) {
  ASSERT_NE(run("ls").output, "");
  server_.end();
  EXPECT_EQ(run("ls"), (CommandResult{1, ""}));
  EXPECT_EQ(run("ls -l"), (CommandResult{1, "root    []\n"}));
}

TEST_F(Ls, AcceptsOnePathAndIgnoresUnknownLetters) {
  EXPECT_EQ(run("ls -x drive/box").output, "v   \ng/  \nn/  \n");
  EXPECT_EQ(run("ls -rlmc drive/box").result, 1);
  EXPECT_EQ(run("ls a b"), (CommandResult{5, "ERROR: OptionError\n"}));
}

TEST_F(Ls, ListsADeepTree) {
  // A sanitized build takes several times as long.
  constexpr int levels = test_support::sanitized ? 500 : 2000;
  std::vector<std::unique_ptr<ModelSrv::ModelNode>> nodes;
  ModelSrv::ModelNode* above = &n_;
  for (int level = 0; level < levels; ++level) {
    nodes.push_back(std::make_unique<ModelSrv::ModelNode>(ModelSrv::ModelPartId{9}, "d"));
    ASSERT_EQ(above->add(nodes.back().get()), ModelSrv::ModelRes_Success);
    above = nodes.back().get();
  }
  const std::string output = run("ls -r drive/box/n").output;
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), levels + 1);
  EXPECT_TRUE(output.ends_with(std::string(4 * (levels - 1), ' ') + "+-- d  \n"));
  while (!nodes.empty()) {
    nodes.pop_back();
  }
}

class LsWithoutConnection : public ScopeFixture {
 protected:
  void TearDown() override {
    for (const std::string& file : files_) {
      unlink(file.c_str());
    }
  }

  void makeFile(const std::string& name) {
    files_.push_back("/tmp/" + name);
    ASSERT_TRUE(std::ofstream(files_.back()));
  }

  /// The servers of this test that `ls` lists.
  std::vector<std::string> listed() {
    const CommandResult listing = run("ls");
    EXPECT_EQ(listing.result, 1);
    std::vector<std::string> names;
    std::istringstream lines(listing.output);
    for (std::string line; std::getline(lines, line);) {
      line.erase(line.find_last_not_of(' ') + 1);
      if (line.find(tag_) != std::string::npos) {
        names.push_back(line);
      }
    }
    return names;
  }

  std::string tag_ = test_support::uniquePortName();
  std::vector<std::string> files_;
};

TEST_F(LsWithoutConnection, ListsAServerOnceForEachPipe) {
  makeFile("Model_" + tag_ + ".fifo");
  makeFile("Model_" + tag_ + ".efifo");
  makeFile("Model_" + tag_ + "b");
  makeFile(tag_ + ".Model.fifo");
  makeFile("modelsrv" + tag_ + ".fifo");
  EXPECT_THAT(listed(),
              testing::UnorderedElementsAre("Model_" + tag_, "Model_" + tag_, tag_ + ".Model"));
  EXPECT_EQ(run("ls -rlmc").result, 1);
}

TEST_F(LsWithoutConnection, AcceptsNoPath) {
  EXPECT_EQ(run("ls drive"), (CommandResult{3, ""}));
  EXPECT_EQ(run("ls /"), (CommandResult{3, ""}));
}

TEST_F(LsWithoutConnection, ListsServersAgainAfterDisconnecting) {
  makeFile("Model_" + tag_ + ".fifo");
  EXPECT_EQ(run("cd no-such-server"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_THAT(listed(), testing::ElementsAre("Model_" + tag_));
  connect();
  EXPECT_THAT(listed(), testing::IsEmpty());
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_THAT(listed(), testing::ElementsAre("Model_" + tag_));
}

}  // namespace
}  // namespace treescope::test
