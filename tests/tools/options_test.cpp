#include "tools/options.h"

#include <gtest/gtest.h>

#include "tests/tools/treectl_fixture.h"
#include "tools/option_table.h"

namespace treectl {
namespace {

struct BadLine {
  std::vector<std::string_view> words;
  const char* problem;
};

TEST(Options, AreRejectedInOneLine) {
  const BadLine cases[] = {
      {{}, "missing command; see treectl --help"},
      {{"frob"}, "\"frob\": unknown command; see treectl --help"},
      {{""}, "\"\": unknown command; see treectl --help"},
      {{"get"}, "missing argument; usage: treectl get ADDRESS..."},
      {{"get", "--frob", "/S/a"}, "\"--frob\": unknown option; see treectl --help"},
      {{"get", "-x", "/S/a"}, "\"-x\": unknown option; see treectl --help"},
      {{"get", "-r", "/S/a"}, "--recursive: not an option of get"},
      {{"--raw", "list", "/S/a"}, "--raw: not an option of list"},
      {{"get", "/S/a", "-s"}, "--server: missing argument"},
      {{"get", "/S/a", "--server="}, "--server: expected the name of a server, got \"\""},
      {{"get", "--json=yes", "/S/a"}, "--json: takes no argument"},
      {{"get", "--raw", "--json", "/S/a"}, "--raw: not together with --json"},
      {{"watch", "--csv", "--json", "/S/a"}, "--csv: not together with --json"},
      {{"get", "--raw", "/S/a", "/S/b"}, "--raw: expected one address"},
      {{"get", "--timeout", "soon", "/S/a"}, "--timeout: expected seconds, got \"soon\""},
      {{"get", "--timeout", "-1", "/S/a"}, "--timeout: expected seconds, got \"-1\""},
      {{"get", "--timeout", "nan", "/S/a"}, "--timeout: expected seconds, got \"nan\""},
      {{"get", "--timeout", "0x10", "/S/a"}, "--timeout: expected seconds, got \"0x10\""},
      {{"get", "--timeout", " 1", "/S/a"}, "--timeout: expected seconds, got \" 1\""},
      {{"get", "--timeout", "", "/S/a"}, "--timeout: expected seconds, got \"\""},
      {{"get", "--color", "blue", "/S/a"}, "--color: expected auto, always or never, got \"blue\""},
      {{"servers", "x"}, "\"x\": unexpected argument"},
      {{"servers", "--wait", ""}, "--wait: expected the name of a server, got \"\""},
      {{"set", "/S/a"}, "\"/S/a\": missing value"},
      {{"set", "/S/a", "1", "/S/b"}, "\"/S/b\": missing value"},
      {{"set", "--array", "/S/a"}, "\"/S/a\": missing values"},
      {{"set", "--array", "--stdin", "/S/a", "1"}, "--stdin: not together with --array"},
      {{"set", "--stdin", "/S/a", "1"}, "--stdin: expected one address and no value"},
      {{"dump", "/S/a", "/S/b"}, "\"/S/b\": unexpected argument"},
      {{"dump", "-o"}, "--output: missing argument"},
      {{"restore"}, "missing argument; usage: treectl restore FILE [ADDRESS]"},
      {{"diff", "a", "b", "c"}, "\"c\": unexpected argument"},
      {{"help", "get", "set"}, "\"set\": unexpected argument"}};
  for (const BadLine& test : cases) {
    const auto result = parseOptions(test.words);
    ASSERT_TRUE(std::holds_alternative<std::string>(result)) << test.problem;
    EXPECT_EQ(std::get<std::string>(result), test.problem);
  }
}

Options optionsOf(const std::vector<std::string_view>& words) {
  const auto result = parseOptions(words);
  const auto* const problem = std::get_if<std::string>(&result);
  EXPECT_EQ(problem, nullptr) << *problem;
  return problem == nullptr ? std::get<Options>(result) : Options();
}

TEST(Options, StandAnywhere) {
  for (const auto& words : std::vector<std::vector<std::string_view>>{
           {"-rl", "-s", "S", "list", "a", "b"},
           {"list", "-r", "a", "--long", "b", "-sS"},
           {"list", "a", "b", "--server=S", "-lr"},
           {"list", "--server", "S", "-r", "-l", "--", "a", "b"}}) {
    const Options options = optionsOf(words);
    EXPECT_EQ(options.command, Command::list);
    EXPECT_TRUE(options.recursive && options.longForm);
    EXPECT_EQ(options.server, "S");
    EXPECT_EQ(options.operands, (std::vector<std::string>{"a", "b"}));
  }
  EXPECT_EQ(optionsOf({"get", "--", "-s"}).operands, std::vector<std::string>{"-s"});
  EXPECT_EQ(optionsOf({"diff", "-", "a"}).operands, (std::vector<std::string>{"-", "a"}));
  EXPECT_EQ(optionsOf({"get", "--timeout", "0.25", "a"}).timeout, 0.25);
}

TEST(Options, OfWaitStandBeforeItsValueAndEndThere) {
  const std::vector<std::string> wanted{"a", "==", "-7"};
  EXPECT_EQ(optionsOf({"wait", "a", "==", "-7"}).operands, wanted);
  EXPECT_EQ(optionsOf({"wait", "a", "==", "--", "-7"}).operands, wanted);
  EXPECT_EQ(optionsOf({"wait", "--", "a", "==", "-7"}).operands, wanted);
  EXPECT_EQ(optionsOf({"wait", "a", "==", "--"}).operands.back(), "--");
}

TEST(Options, OfSetEndAtItsFirstAddress) {
  const Options options = optionsOf({"set", "--stop", "a", "-7", "b", "--stop", "c", "--"});
  EXPECT_TRUE(options.stop);
  EXPECT_EQ(options.operands, (std::vector<std::string>{"a", "-7", "b", "--stop", "c", "--"}));
  EXPECT_TRUE(optionsOf({"set", "a", "--stdin"}).fromInput);
  EXPECT_FALSE(optionsOf({"set", "--", "a", "--stdin"}).fromInput);
  EXPECT_FALSE(optionsOf({"set", "a", "--stdin", "b", "--stdin"}).fromInput);
  EXPECT_EQ(optionsOf({"set", "--array", "a", "--stdin", "-1"}).operands.size(), 3U);
}

TEST(Options, RowsStandInTheOrderOfTheCommands) {
  std::size_t index = 0;
  for (const CommandRow& row : commandTable()) {
    EXPECT_EQ(static_cast<std::size_t>(row.command), index++);
    EXPECT_EQ(&rowOf(row.command), &row);
    EXPECT_EQ(findCommand(row.name), row.command);
  }
}

TEST(Options, EndWithHelpAndVersion) {
  EXPECT_TRUE(optionsOf({"--help", "--frob"}).help);
  EXPECT_TRUE(optionsOf({"get", "-h"}).help);
  const test_support::Finished help = runTreectl({"--help"});
  EXPECT_EQ(help.output, usageText());
  EXPECT_EQ(help.status, test_support::ExitStatus{});
  for (const CommandRow& row : commandTable()) {
    const std::string name(row.name);
    EXPECT_EQ(runTreectl({"help", name}).output, usageText(row.command));
    if (row.command != Command::help) {
      EXPECT_EQ(runTreectl({name, "--help"}).output, usageText(row.command));
    }
  }
  EXPECT_THAT(runTreectl({"-V"}).output,
              testing::MatchesRegex("treectl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  const test_support::Finished wrong = runTreectl({"help", "frob"});
  EXPECT_EQ(wrong.status, (test_support::ExitStatus{2, 0}));
  EXPECT_EQ(wrong.errors, "treectl: frob: unknown command; see treectl --help\n");
}

}  // namespace
}  // namespace treectl
