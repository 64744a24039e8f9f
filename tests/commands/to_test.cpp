#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <deque>
#include <filesystem>

#include "commands/target_address.h"
#include "tests/commands/scope_fixture.h"
#include "tests/support/scratch_directory.h"

namespace treescope::test {
namespace {

/// `to` with the file "f" in a scratch directory.
class To : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }

  /// Runs `to` on an existing file and returns the new content.
  std::string saved(const std::string& path = {}) {
    const std::string file = directory_.write("f", "old content");
    EXPECT_EQ(run("to " + file + ' ' + path).result, 1) << path;
    return directory_.read("f");
  }

  test_support::ScratchDirectory directory_;
  const std::string file_ = directory_.file("f");
};

const std::string driveLines =
    "set 42 /drive/speed\n"
    "str \"two words\" /drive/label\n"
    "set 1.5 /drive/gains[0]\n"
    "set 0.25 /drive/gains[1]\n"
    "set 1 /drive/raw[0]\n"
    "set 2 /drive/raw[1]\n"
    "set 3 /drive/raw[2]\n"
    "set A-17 /drive/serial\n"
    "set 0 /drive/offset\n"
    "set false /drive/secret\n"
    "set 1 /drive/limited\n"
    "set 7 /drive/noname-12\n"
    "set 99 /drive/speed\n"
    "set 5 /drive/inner/deep\n";

TEST_F(To, WritesEveryPartOfTheServer) {
  const std::string all = driveLines +
                          "str \"\" /empty\n"
                          "set 3 /noname-3/x\n"
                          "str \"odd value\" /\xff od[d [1m \n"
                          "str \"line break\" /top\n";
  EXPECT_EQ(saved(), all);
  EXPECT_EQ(saved("/"), all);
  EXPECT_EQ(saved("~"), all);
  EXPECT_EQ(saved("drive/"), driveLines);
  EXPECT_EQ(saved("/drive/inner/"), "set 5 /drive/inner/deep\n");
}

TEST_F(To, ReportsEveryCommand) {
  ASSERT_EQ(run("cd drive/gains").result, 1);
  EXPECT_EQ(run("to " + file_), (CommandResult{1,
                                               " make command [1.5] -> [set 1.5 ]\n"
                                               " make command [0.25] -> [set 0.25 ]\n"}));
  EXPECT_EQ(run("to " + file_ + " ../label"),
            (CommandResult{1, " make command [two words] -> [str \"two words\" ]\n"}));
  EXPECT_EQ(run("to " + file_ + " /empty"),
            (CommandResult{1, " make command [] -> [str \"\" ]\n"}));
  EXPECT_EQ(run("to " + file_ + " /top"),
            (CommandResult{1, " make command [line\nbreak] -> [str \"line break\" ]\n"}));
}

TEST_F(To, OmitsTheNamedChildFromThePaths) {
  struct Case {
    std::string path;
    std::string lines;
  };
  const Case cases[] = {
      {"top", "str \"line break\" \n"},
      {"/drive/speed", "set 42 /drive\n"},
      {"drive/label", "str \"two words\" /drive\n"},
      {"drive/gains", "set 1.5 /drive[0]\nset 0.25 /drive[1]\n"},
      {"drive/noname-12", "set 7 /drive\n"},
      {"drive/inner", "set 5 /drive/deep\n"},
      {"noname-3", "set 3 /x\n"},
      {"empty", "str \"\" \n"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(saved(test.path), test.lines) << test.path;
  }
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(saved("speed"), "set 42 /drive\n");
  EXPECT_EQ(saved("../drive/inner"), "set 5 /drive/deep\n");
}

TEST_F(To, WritesTheCurrentPart) {
  ASSERT_EQ(run("cd drive/raw").result, 1);
  const std::string raw = "set 1 /drive/raw[0]\nset 2 /drive/raw[1]\nset 3 /drive/raw[2]\n";
  EXPECT_EQ(saved(), raw);
  EXPECT_EQ(saved("/drive/raw/"), raw);
  ASSERT_EQ(run("cd ../noname-12").result, 1);
  EXPECT_EQ(saved(), "set 7 /drive/noname-12\n");
  ASSERT_EQ(run("cd ..").result, 1);
  EXPECT_EQ(saved(), driveLines);
}

TEST_F(To, LeavesAnEmptyFileForAnUnknownChild) {
  for (const char* path : {"nothing", "drive/nothing", "drive/noname-1", "drive/gains[0]",
                           "drive/gains/p", "..", "drive/.."}) {
    EXPECT_EQ(saved(path), "") << path;
  }
}

TEST_F(To, LeavesAnEmptyFileIfThePathDoesNotResolve) {
  for (const char* path : {"nothing/x", "../x", "../", "drive/speed/x/y"}) {
    EXPECT_EQ(run("to " + directory_.write("f", "old content") + ' ' + path),
              (CommandResult{3, ""}));
    EXPECT_EQ(directory_.read("f"), "") << path;
  }
}

TEST_F(To, ReportsAFileThatCannotBeOpened) {
  const CommandResult error{6, "ERROR: OpenFileError\n"};
  EXPECT_EQ(run("to " + directory_.file("none/f")), error);
  EXPECT_FALSE(std::filesystem::exists(directory_.file("none")));
  EXPECT_EQ(run("to " + directory_.path()), error);
  EXPECT_EQ(run("to \"\""), error);
  const std::string pipe = directory_.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(run("to " + pipe), error);
  // The file is opened before the path is resolved.
  EXPECT_EQ(run("to " + directory_.path() + " nothing/x"), error);
}

TEST_F(To, ReportsNoErrorForAFullDisk) {
  EXPECT_EQ(run("to /dev/full drive/speed"),
            (CommandResult{1, " make command [42] -> [set 42 ]\n"}));
  ASSERT_EQ(server_.label.setValue(std::string(200000, 'x')), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("to /dev/full").result, 1);
}

TEST_F(To, OpensNoFileWhileNotConnected) {
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_EQ(run("to " + directory_.write("f", "old content")), (CommandResult{3, ""}));
  EXPECT_EQ(directory_.read("f"), "old content");
  EXPECT_EQ(run("to " + directory_.path()), (CommandResult{3, ""}));
}

TEST_F(To, LeavesAnEmptyFileAfterTheServerHasStopped) {
  server_.end();
  EXPECT_EQ(run("to " + file_), (CommandResult{3, ""}));
  EXPECT_EQ(directory_.read("f"), "");
}

TEST_F(To, WritesTextsOfAnyBytes) {
  const std::string bytes("\x01\xff\x1b[31m\0;\t%s", 12);
  ASSERT_EQ(server_.label.setValue(bytes), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("to " + file_ + " drive/label"),
            (CommandResult{1, " make command [" + bytes + "] -> [str \" \xff [31m   %s\" ]\n"}));
  EXPECT_EQ(directory_.read("f"), "str \" \xff [31m   %s\" /drive\n");
}

TEST_F(To, RequestsTheIdsAndTheNamesOfChildrenOnce) {
  CountedNode counted(60, "counted");
  ModelSrv::ModelNode inner(1, "inner");
  ModelSrv::ValuePart<bool> leaf(1, "leaf");
  ASSERT_EQ(inner.add(&leaf), ModelSrv::ModelRes_Success);
  ASSERT_EQ(counted.add(&inner), ModelSrv::ModelRes_Success);
  // With this server each request of the shell is an exchange.
  const std::string name = test_support::uniquePortName("uncached");
  SampleServer uncached(name, SampleServer::Prefetch::disabled);
  ASSERT_EQ(uncached.drive.add(&counted), ModelSrv::ModelRes_Success);
  ASSERT_EQ(run("cd").result, 1);
  ASSERT_EQ(run("cd " + name).result, 1);
  ASSERT_TRUE(scope_.hasChildren({}, true));
  const IdChain node{1, 60};
  const IdChain below{1, 60, 1};
  const IdChain part{1, 60, 1, 1};
  counted.requests = 0;
  std::string text;
  for (const IdChain& chain : {node, below}) {
    ChildList children;
    ASSERT_TRUE(scope_.fetchChildren(chain, children, true));
  }
  ASSERT_FALSE(scope_.hasChildren(part, true));
  ASSERT_EQ(scope_.elementSum(part, true), 0);
  scope_.readValueText(part, text, true);
  // The command first resolves the path and lists the children there.
  ASSERT_TRUE(resolveParent(scope_, "drive/counted"));
  const int expected = counted.requests.exchange(0);
  EXPECT_EQ(run("to " + file_ + " drive/counted/"),
            (CommandResult{1, " make command [false] -> [set false ]\n"}));
  EXPECT_EQ(counted.requests, expected);
}

TEST_F(To, WritesATreeOf1000Levels) {
  constexpr int depth = 1000;
  ModelSrv::ValuePart<std::int32_t> leaf(1, "leaf", 6);
  std::deque<ModelSrv::ModelNode> nodes;
  ModelSrv::ModelPart* below = &leaf;
  std::string path;
  for (int level = 0; level < depth; ++level) {
    path += "/n";
    ASSERT_EQ(nodes.emplace_back(level + 1 == depth ? 30 : 1, "n").add(below),
              ModelSrv::ModelRes_Success);
    below = &nodes.back();
  }
  ASSERT_EQ(server_.drive.add(below), ModelSrv::ModelRes_Success);
  ASSERT_EQ(run("cd drive/n").result, 1);
  EXPECT_EQ(saved(), "set 6 /drive" + path + "/leaf\n");
}

TEST_F(To, RequiresAFileAndAcceptsOnePath) {
  const CommandResult error{5, "ERROR: OptionError\n"};
  EXPECT_EQ(run("to"), error);
  EXPECT_EQ(run("to " + file_ + " a b"), error);
  EXPECT_EQ(run("to -r " + file_), error);
}

}  // namespace
}  // namespace treescope::test
