#include "tests/commands/scope_fixture.h"

namespace treescope::test {
namespace {

class Get : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }

  struct Case {
    std::string command;
    std::string output;
  };

  template <std::size_t count>
  void expectLines(const Case (&cases)[count]) {
    for (const Case& test : cases) {
      EXPECT_EQ(run(test.command), (CommandResult{1, test.output + "\n"})) << test.command;
    }
  }

  template <std::size_t count>
  void expectNothing(const char* const (&commands)[count]) {
    for (const char* command : commands) {
      EXPECT_EQ(run(command), (CommandResult{3, ""})) << command;
    }
  }
};

TEST_F(Get, PrintsAPartOrAnElement) {
  const Case cases[] = {
      {"get /drive/speed", "/drive/speed    [42]"},
      {"get drive/speed", "/drive/speed    [42]"},
      {"get ~drive/speed", "/drive/speed    [42]"},
      {"get //drive//speed", "/drive/speed    [42]"},
      {"get /drive/speed[3]", "/drive/speed[3] [42]"},
      {"get /drive/gains", "/drive/gains    [1.5 0.25]"},
      {"get /drive/gains[1]", "/drive/gains[1] [0.25]"},
      {"get /drive/gains[x]", "/drive/gains[x] [1.5]"},
      {"get /drive/gains[9]", "/drive/gains[9] []"},
      {"get /drive/gains[65534]", "/drive/gains[65534] []"},
      {"get /drive/raw", "/drive/raw  [1 2 3]"},
      {"get /drive/raw[2]", "/drive/raw[2]   [3]"},
      {"get /drive/noname-12", "/drive/noname-12    [7]"},
      {"get /noname-3/x", "/noname-3/x [3]"},
      {"get /drive/secret", "/drive/secret   [false]"},
      {"get /drive/serial", "/drive/serial   [A-17]"},
      {"get top", "/top    [line break]"},
      {"get empty", "/empty  []"},
  };
  expectLines(cases);
}

TEST_F(Get, FindsTheElementsOfTheCurrentPart) {
  ASSERT_EQ(run("cd drive/gains").result, 1);
  const Case cases[] = {
      {"get", "/drive/gains    [1.5 0.25]"},
      {"get \"\"", "/drive/gains    [1.5 0.25]"},
      {"get [1]", "/drive/gains[1] [0.25]"},
      {"get whatever[1]", "/drive/gains[1] [0.25]"},
      {"get i", "/drive/gains[1] [0.25]"},
      {"get p", "/drive/gains[0] [1.5]"},
      {"get I", "/drive/gains    [1.5 0.25]"},
      {"get []", "/drive/gains    [1.5 0.25]"},
      {"get ..", "/drive/gains    [1.5 0.25]"},
      {"get ../speed", "/drive/speed    [42]"},
      {"get /drive/gains/", "/drive/gains    [1.5 0.25]"},
      {"get /drive/gains/i", "/drive/gains    [1.5 0.25]"},
      {"get /drive/gains/[1]", "/drive/gains[1] [0.25]"},
  };
  expectLines(cases);
  EXPECT_EQ(run("get ./i"), (CommandResult{3, ""}));
}

TEST_F(Get, PrintsNothingIfThereIsNoPart) {
  const char* const commands[] = {
      "get",
      "get /",
      "get drive",
      "get drive/",
      "get nothing",
      "get x/y",
      "get drive/a[]",
      "get drive/[1]",
      "get ..",
      "get /drive/inner",
      "get /drive/noname-13",
      "get /drive/noname-012",
  };
  expectNothing(commands);
}

TEST_F(Get, TreatsEmptyBracketsAsPartOfTheName) {
  ModelSrv::ValuePart<std::int32_t> bracketed(20, "a[]", 6);
  ASSERT_EQ(server_.drive.add(&bracketed), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("get drive/a[]"), (CommandResult{1, "/drive/a[]  [6]\n"}));
}

TEST_F(Get, AddressesANameOfAnyBytes) {
  EXPECT_EQ(run("get \"/" + SampleServer::oddName() + "\""),
            (CommandResult{1, "/\xff od[d\x1b[1m     [odd value]\n"}));
}

TEST_F(Get, PrintsTheCurrentValueOfTheServer) {
  EXPECT_EQ(run("get drive/speed").output, "/drive/speed    [42]\n");
  ASSERT_EQ(server_.speed.setValue(-1), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("get drive/speed").output, "/drive/speed    [-1]\n");
}

TEST_F(Get, PrintsNothingWithoutAServer) {
  ASSERT_EQ(run("cd drive/speed").result, 1);
  server_.end();
  const char* const commands[] = {"get", "get /drive/speed", "get [1]"};
  expectNothing(commands);
  ASSERT_EQ(run("cd").result, 1);
  expectNothing(commands);
}

TEST_F(Get, ReturnsIfTheServerHangs) {
  server_.hang();
  EXPECT_EQ(run("get /drive/label"), (CommandResult{3, ""}));
  server_.resume();
}

TEST_F(Get, AcceptsOnePathAndNoOptions) {
  EXPECT_EQ(run("get -r"), (CommandResult{5, "ERROR: OptionError\n"}));
  EXPECT_EQ(run("get a b"), (CommandResult{5, "ERROR: OptionError\n"}));
}

}  // namespace
}  // namespace treescope::test
