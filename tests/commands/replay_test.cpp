#include <gmock/gmock.h>

#include <filesystem>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "shell/options.h"
#include "tests/commands/scope_fixture.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"

namespace treescope::test {
namespace {

using ModelSrv::ArrayPart;
using ModelSrv::ValuePart;
using test_support::Finished;
using testing::ElementsAre;

/// A node with a part of each type, all with different values.
class Replay : public ScopeFixture {
 protected:
  void SetUp() override {
    for (ModelSrv::ModelPart* part : std::initializer_list<ModelSrv::ModelPart*>{
             &flag, &int8,     &int16, &int32, &int64, &uint8, &uint16, &uint32, &uint64, &single,
             &real, &infinite, &nan,   &word,  &words, &none,  &quoted, &bytes,  &reals,  &texts}) {
      ASSERT_EQ(all_.add(part), ModelSrv::ModelRes_Success) << part->name();
    }
    ASSERT_EQ(server_.drive.add(&all_), ModelSrv::ModelRes_Success);
    connect();
    ASSERT_EQ(run("cd drive").result, 1);
  }
  void TearDown() override { forceLoadFlag = false; }

  template <typename T>
  static void put(ValuePart<T>& part, std::type_identity_t<T> value) {
    EXPECT_EQ(part.setValue(std::move(value)), ModelSrv::ModelRes_Success) << part.name();
  }
  template <typename T>
  static void putAll(ArrayPart<T>& part, const std::type_identity_t<std::vector<T>>& values) {
    EXPECT_EQ(part.setValues(values), ModelSrv::ModelRes_Success) << part.name();
  }

  void changeAll() {
    put(flag, false);
    put(int8, -1);
    put(int16, -1);
    put(int32, -1);
    put(int64, -1);
    put(uint8, 0);
    put(uint16, 0);
    put(uint32, 0);
    put(uint64, 0);
    put(single, 0);
    put(real, 0);
    put(infinite, 0);
    put(nan, 0);
    put(word, "");
    put(words, "other");
    put(none, "some");
    put(quoted, "");
    put(bytes, "");
    putAll(reals, {-1, -1, -1});
    putAll(texts, {"x", "y", "z"});
  }

  std::string save(const std::string& name) {
    EXPECT_EQ(run("to " + directory_.file(name) + " all/").result, 1);
    return directory_.read(name);
  }

  template <typename T>
  static constexpr T most = std::numeric_limits<T>::max();

  test_support::ScratchDirectory directory_;
  ModelSrv::ModelNode all_{40, "all"};
  ValuePart<bool> flag{1, "flag", true};
  ValuePart<std::int8_t> int8{2, "int8", most<std::int8_t>};
  ValuePart<std::int16_t> int16{3, "int16", most<std::int16_t>};
  ValuePart<std::int32_t> int32{4, "int32", most<std::int32_t>};
  ValuePart<std::int64_t> int64{5, "int64", most<std::int64_t>};
  ValuePart<std::uint8_t> uint8{6, "uint8", most<std::uint8_t>};
  ValuePart<std::uint16_t> uint16{7, "uint16", most<std::uint16_t>};
  ValuePart<std::uint32_t> uint32{8, "uint32", most<std::uint32_t>};
  ValuePart<std::uint64_t> uint64{9, "uint64", most<std::uint64_t>};
  ValuePart<float> single{10, "single", 0.1F};
  ValuePart<double> real{11, "real", std::numeric_limits<double>::denorm_min()};
  ValuePart<double> infinite{12, "infinite", std::numeric_limits<double>::infinity()};
  ValuePart<float> nan{13, "nan", std::numeric_limits<float>::quiet_NaN()};
  ValuePart<std::string> word{14, "word", "one"};
  ValuePart<std::string> words{15, "words", " two  words "};
  ValuePart<std::string> none{16, "none", ""};
  ValuePart<std::string> quoted{17, "quoted", "a\"b\"c"};
  ValuePart<std::string> bytes{18, "bytes", "\x80\xff[m'$`\\%s"};
  ArrayPart<double> reals{19, "reals", {1.5, 1e300, 0}, {"a", "b", "c"}};
  ArrayPart<std::string> texts{20, "texts", {"x y", "", "plain"}};
};

TEST_F(Replay, RestoresEveryTypeOfValue) {
  const std::string before = save("before");
  for (const char* command : {"from ", "cmdfrom "}) {
    changeAll();
    EXPECT_NE(save("changed"), before);
    EXPECT_EQ(run(command + directory_.file("before")).result, 3);
    EXPECT_EQ(save("after"), before) << command;
  }
}

TEST_F(Replay, WorksThroughACommandFileOfTheProgram) {
  const std::string before = save("before");
  changeAll();
  EXPECT_NE(save("changed"), before);
  const std::string script = directory_.write("script", "cd " + name_ + '\n' + before);
  const Finished replay = test_support::run({test_support::treescopeProgram(), "-f", script});
  EXPECT_EQ(replay.status, (test_support::ExitStatus{0, 0}));
  EXPECT_THAT(replay.output, testing::StartsWith("/drive/all/flag [true]\n"));
  EXPECT_EQ(save("after"), before);
}

TEST_F(Replay, TheProgramSavesTheSameFile) {
  const std::string file = directory_.file("saved");
  const std::string command = "cd " + name_ + ";cd drive;to " + file + " all/";
  const Finished saving = test_support::run({test_support::treescopeProgram(), "-c", command});
  EXPECT_EQ(saving.status, (test_support::ExitStatus{0, 0}));
  EXPECT_THAT(saving.output, testing::StartsWith(" make command [true] -> [set true ]\n"));
  EXPECT_EQ(directory_.read("saved"), save("here"));
}

TEST_F(Replay, TreatsANegativeNumberAsOptions) {
  put(int32, -5);
  const std::string file = directory_.write("f", "set -5 /drive/all/int32\nget /drive/all/int8");
  EXPECT_THAT(save("saved"), testing::HasSubstr("set -5 /drive/all/int32\n"));
  put(int32, 1);
  EXPECT_EQ(run("from " + file), (CommandResult{1, "/drive/all/int8 [127]\n"}));
  EXPECT_EQ(int32.value(), 1);
  // In quotes and after a space it is a value.
  EXPECT_EQ(run("set \" -5\" all/int32"), (CommandResult{1, "/drive/all/int32    [-5]\n"}));
  EXPECT_EQ(run("str -5 all/word"), (CommandResult{1, "/drive/all/word [-5]\n"}));
}

TEST_F(Replay, StopsAtATextThatLooksLikeAnInvalidOption) {
  const std::string file = directory_.write("f", "set -run /drive/all/word\nset 3 /drive/speed\n");
  EXPECT_EQ(run("from " + file), (CommandResult{5, "ERROR: OptionError\nERROR: OptionError\n"}));
  EXPECT_EQ(server_.speed.value(), 42);
}

TEST_F(Replay, SplitsTextsAtQuotesAndBlanksLineFeedsAndSemicolons) {
  putAll(texts, {"line\nbreak", "say \"hi\" now", "a;b"});
  ASSERT_EQ(run("cd all/texts").result, 1);
  ASSERT_EQ(run("to " + directory_.file("f")).result, 1);
  EXPECT_EQ(directory_.read("f"),
            "str \"line break\" /drive/all/texts[0]\n"
            "str \"say \"hi\" now\" /drive/all/texts[1]\n"
            "str \"a b\" /drive/all/texts[2]\n");
  putAll(texts, {"1", "2", "3"});
  ASSERT_EQ(run("cd /").result, 1);
  EXPECT_THAT(run("from " + directory_.file("f")).output, testing::HasSubstr("[line break]\n"));
  EXPECT_THAT(texts.values(), ElementsAre("line break", "2", "a b"));
}

TEST_F(Replay, RunsNoCommandOfAServer) {
  const std::string touched = directory_.file("touched");
  const std::string script = directory_.write("script", "$touch " + touched);
  const std::string commands[] = {"$touch " + touched, "cmdfrom " + script};
  for (const std::string& command : commands) {
    for (const std::string& text : {"ok;" + command, "ok\n" + command, "ok\r\n" + command + "\n",
                                    "\"\n" + command, "ok; \n;" + command, '\n' + command}) {
      ValuePart<std::string> named{30, text, text};
      ASSERT_EQ(all_.add(&named), ModelSrv::ModelRes_Success);
      put(word, text);
      putAll(texts, {text, text, text});
      EXPECT_THAT(save("saved"), testing::HasSubstr(command.substr(0, command.find(' '))));
      for (const char* const runner : {"from ", "cmdfrom "}) {
        static_cast<void>(run(runner + directory_.file("saved")));
        EXPECT_FALSE(std::filesystem::exists(touched)) << testing::PrintToString(text);
      }
      ASSERT_EQ(all_.remove(&named), ModelSrv::ModelRes_Success);
    }
  }
}

TEST_F(Replay, AcceptsLineFeedsAndLongTextsInACommandString) {
  const std::string text = "line\n" + std::string(5000, 'x') + "\n\nbreak";
  const Finished storing =
      test_support::run({test_support::treescopeProgram(), "-c",
                         "cd " + name_ + ";str \"" + text + "\" /drive/all/word"});
  EXPECT_EQ(storing.status, (test_support::ExitStatus{0, 0}));
  EXPECT_EQ(word.value(), text);
}

TEST_F(Replay, RequiresTheLoadersFlagForProtectedParts) {
  const std::string file = directory_.write("f", "set 2 /drive/offset\n");
  EXPECT_EQ(run("from " + file), (CommandResult{3, "/drive/offset   [0]\n"}));
  forceLoadFlag = true;
  EXPECT_EQ(run("from " + file), (CommandResult{3, "/drive/offset   [2]\n"}));
}

}  // namespace
}  // namespace treescope::test
