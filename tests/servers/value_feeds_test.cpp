#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <variant>

#include "servers/description_parser.h"
#include "servers/feed_values.h"
#include "servers/value_file.h"
#include "tests/support/model_server.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/tree_client.h"

// Values in files and simulated values, from their description to a client.

namespace modelsrvd {
namespace {

using ModelSrv::ModelRes_BadText;
using ModelSrv::ModelRes_NoValue;
using ModelSrv::ModelRes_OutOfRange;
using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_TooLarge;
using ModelSrv::ModelRes_Vetoed;

void writeText(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
}

std::string textOfFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::string sourceError(std::string_view entry) {
  const auto result =
      parseTreeDescription(R"({"children": [{"name": "t", )" + std::string(entry) + "}]}");
  const auto* error = std::get_if<Error>(&result);
  return error == nullptr ? "parsed" : error->text;
}

TEST(SourceDescription, SaysWhatIsWrongAndWhere) {
  const struct {
    const char* entry;
    const char* error;
  } cases[] = {
      {R"("type": "int32", "file": "/x", "period": 500, "scale": -2, "offset": 1)", "parsed"},
      {R"("type": "bool", "simulate": "steps")", "parsed"},
      {R"("type": "text", "simulate": "steps", "choices": ["a"], "seed": 7)", "parsed"},
      {R"("file": "/x")", "/children/0: missing \"type\""},
      {R"("type": "int8", "file": "x")", "/children/0/file: expected an absolute path, got \"x\""},
      {R"("type": "int8", "file": 1)", "/children/0/file: expected an absolute path, got 1"},
      {R"("type": "int8", "file": "/x", "value": 1)",
       "/children/0/file: not allowed together with \"value\""},
      {R"("type": "int8", "file": "/x", "elements": [{"value": 1}])",
       "/children/0/file: not allowed together with \"elements\""},
      {R"("type": "int8", "file": "/x", "simulate": "ramp")",
       "/children/0/simulate: not allowed together with \"file\""},
      {R"("type": "int8", "file": "/x", "period": 9)",
       "/children/0/period: expected milliseconds from 10 to 86400000, got 9"},
      {R"("type": "text", "file": "/x", "scale": 2)", "/children/0/scale: not allowed for text"},
      {R"("type": "int8", "file": "/x", "scale": 0)",
       "/children/0/scale: expected a number that is not 0"},
      {R"("type": "int8", "file": "/x", "seed": 1)",
       "/children/0/seed: not allowed together with \"file\""},
      {R"("type": "int8", "value": 1, "period": 100)",
       R"(/children/0/period: requires "file" or "simulate")"},
      {R"("type": "int8", "simulate": "saw")",
       R"(/children/0/simulate: expected "ramp", "sine", "noise" or "steps", got "saw")"},
      {R"("type": "bool", "simulate": "sine")",
       "/children/0/simulate: expected \"steps\" for bool"},
      {R"("type": "text", "simulate": "steps")",
       "/children/0/simulate: requires \"choices\" for text"},
      {R"("type": "int8", "simulate": "ramp", "minimum": 1)",
       R"(/children/0/simulate: requires both "minimum" and "maximum", or neither)"},
      {R"("type": "int8", "simulate": "ramp", "seed": -1)",
       "/children/0/seed: expected an integer from 0, got -1"},
      {R"("children": [], "file": "/x")",
       R"(/children/0/file: not allowed together with "children")"}};
  for (const auto& c : cases) {
    EXPECT_EQ(sourceError(c.entry), c.error);
  }
}

TEST(ValueFile, GivesAResultForWhateverIsAtThePath) {
  const test_support::ScratchDirectory scratch;
  const std::string path = scratch.path() + "/value";
  std::string text;
  EXPECT_EQ(readValueFile(path, text), ModelRes_NoValue) << "missing";
  for (const auto& [content, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"42\n", "42"}, {"42", "42"}, {"", ""}, {"\n\n", "\n"}}) {
    writeText(path, content);
    EXPECT_EQ(readValueFile(path, text), ModelRes_Success);
    EXPECT_EQ(text, expected);
  }
  writeText(path, std::string(maxValueFileBytes + 1, 'x'));
  EXPECT_EQ(readValueFile(path, text), ModelRes_TooLarge);
  EXPECT_EQ(readValueFile(scratch.path(), text), ModelRes_NoValue) << "a directory";
  EXPECT_TRUE(writeValueFile(scratch.path(), "1"));
  const std::string fifo = scratch.path() + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(readValueFile(fifo, text), ModelRes_NoValue);
  EXPECT_EQ(writeValueFile(fifo, "1"), fifo + ": not a regular file");
  EXPECT_EQ(writeValueFile(path, "7"), std::nullopt);
  EXPECT_EQ(textOfFile(path), "7\n") << "the rest of the longer value is gone";
  EXPECT_EQ(writeValueFile(scratch.path() + "/missing", "1"),
            scratch.path() + "/missing: No such file or directory");
  EXPECT_EQ(writeValueFile("/proc/self/oom_score_adj", "x"),
            "/proc/self/oom_score_adj: Invalid argument");
}

TEST(ValueFile, IsNotGivenMoreThanCanBeReadBack) {
  const test_support::ScratchDirectory scratch;
  const std::string path = scratch.write("value", "before\n");
  EXPECT_EQ(writeValueFile(path, std::string(maxValueFileBytes, 'x')),
            path + ": more than 65536 bytes");
  EXPECT_EQ(textOfFile(path), "before\n");
  const std::string largest(maxValueFileBytes - 1, 'x');
  EXPECT_EQ(writeValueFile(path, largest), std::nullopt);
  std::string text;
  EXPECT_EQ(readValueFile(path, text), ModelRes_Success);
  EXPECT_EQ(text, largest);
}

TEST(FeedValues, AreScaledWithoutRoundingTwice) {
  FileSpec milli{"", 0, 0.001, 0};
  double value = 0;
  EXPECT_EQ(fromFileText("42123", milli, value), ModelRes_Success);
  EXPECT_EQ(valueText(value), "42.123");
  EXPECT_EQ(toFileText(42.123, milli), "42123");
  FileSpec fahrenheit{"", 0, 1.8, 32};
  EXPECT_EQ(fromFileText(" 100 ", fahrenheit, value), ModelRes_Success);
  EXPECT_EQ(value, 212);
  EXPECT_EQ(toFileText(212.0, fahrenheit), "100");
  std::int8_t small = 0;
  EXPECT_EQ(fromFileText("126600", milli, small), ModelRes_Success);
  EXPECT_EQ(small, 127);
  EXPECT_EQ(fromFileText("128000", milli, small), ModelRes_OutOfRange);
  EXPECT_EQ(fromFileText("nan", milli, small), ModelRes_OutOfRange);
  EXPECT_EQ(fromFileText("warm", milli, small), ModelRes_BadText);
  std::uint64_t large = 0;
  EXPECT_EQ(fromFileText("18446744073709551615", FileSpec{}, large), ModelRes_Success);
  EXPECT_EQ(toFileText(large, FileSpec{}), "18446744073709551615");
  EXPECT_EQ(fromFileText("18446744073709551616", FileSpec{"", 0, 2, 0}, large),
            ModelRes_OutOfRange);
  EXPECT_EQ(toFileText(true, FileSpec{}), "1");
}

TEST(FeedValues, AreSimulatedFromSeedAndTimeAlone) {
  EntryDetails details;
  details.attributes.minimum = "-10";
  details.attributes.maximum = "10";
  using Shape = SimulationSpec::Shape;
  for (const Shape shape : {Shape::ramp, Shape::sine, Shape::noise, Shape::steps}) {
    for (const std::uint64_t seed : {0U, 7U}) {
      details.simulation = SimulationSpec{shape, 1000, 50, seed};
      bool changes = false;
      double first = 0;
      EXPECT_EQ(simulatedValue(details, 0, first), ModelRes_Success);
      for (std::uint64_t time = 0; time < 5000; time += 10) {
        double value = 0;
        double again = 0;
        double sameInterval = 0;
        EXPECT_EQ(simulatedValue(details, time, value), ModelRes_Success);
        EXPECT_EQ(simulatedValue(details, time, again), ModelRes_Success);
        EXPECT_EQ(simulatedValue(details, time / 50 * 50, sameInterval), ModelRes_Success);
        EXPECT_EQ(value, again);
        EXPECT_EQ(value, sameInterval);
        EXPECT_GE(value, -10);
        EXPECT_LE(value, 10);
        changes = changes || value != first;
      }
      EXPECT_TRUE(changes);
    }
  }
  details.simulation = SimulationSpec{Shape::ramp, 1000, 10, 0};
  std::int32_t number = 0;
  EXPECT_EQ(simulatedValue(details, 250, number), ModelRes_Success);
  EXPECT_EQ(number, -5);
  details.attributes = {"", "", "", "", {"off", "auto", "on"}};
  details.simulation = SimulationSpec{Shape::steps, 300, 10, 0};
  std::string mode;
  EXPECT_EQ(simulatedValue(details, 150, mode), ModelRes_Success);
  EXPECT_EQ(mode, "auto");
}

/// A server of a tree of files in a scratch directory.
class FileValues : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const {
    return scratch_.path() + '/' + name;
  }

  /// An entry whose value is in the file of the same name.
  [[nodiscard]] std::string entry(const std::string& name, const std::string& more) const {
    return R"({"name": ")" + name + R"(", "file": ")" + path(name) + "\", " + more + "}";
  }

  test_support::ScratchDirectory scratch_;
};

TEST_F(FileValues, OfASensorAndOfAGpioAreReadWhenAsked) {
  writeText(path("temp1_input"), "42500\n");
  writeText(path("direction"), "in\n");
  auto server = test_support::ModelServer::ofTree(
      R"({"children": [)" +
      entry("temp1_input", R"("type": "double", "scale": 0.001, "access": "read-only")") + "," +
      entry("direction", R"("type": "text", "choices": ["in", "out"])") + "," +
      entry("later", R"("type": "int32")") + "]}");
  test_support::TreeClient client(server.name());
  EXPECT_EQ(client.get("/temp1_input"), "42.5");
  writeText(path("temp1_input"), "-1250\n");
  EXPECT_EQ(client.get("/temp1_input"), "-1.25");
  EXPECT_EQ(client.store("/temp1_input", "1"), ModelSrv::ModelRes_ReadOnly);
  EXPECT_EQ(client.get("/direction"), "in");
  EXPECT_EQ(client.store("/direction", "out"), ModelRes_Success);
  EXPECT_EQ(textOfFile(path("direction")), "out\n");
  EXPECT_EQ(client.store("/direction", "up"), ModelRes_Vetoed);
  EXPECT_EQ(client.store("/later", "1"), ModelRes_Vetoed) << "a file is never created";
  EXPECT_EQ(client.get("/later"), std::string("<") + ModelSrv::describe(ModelRes_NoValue) + ">");
  writeText(path("later"), "7");
  EXPECT_EQ(client.get("/later"), "7");
  writeText(path("later"), "warm");
  EXPECT_EQ(client.get("/later"), std::string("<") + ModelSrv::describe(ModelRes_BadText) + ">");
}

TEST_F(FileValues, AreNotStoredIfTheirFileCannotHoldThem) {
  writeText(path("voltage"), "5\n");
  writeText(path("text"), "before\n");
  auto server = test_support::ModelServer::ofTree(
      R"({"children": [)" + entry("voltage", R"("type": "double", "scale": 0.001)") + "," +
      entry("text", R"("type": "text")") + "]}");
  test_support::TreeClient client(server.name());
  EXPECT_EQ(client.store("/voltage", "1e308"), ModelRes_OutOfRange);
  EXPECT_EQ(textOfFile(path("voltage")), "5\n");
  EXPECT_EQ(client.store("/voltage", "1e305"), ModelRes_Success);
  EXPECT_EQ(client.get("/voltage"), "1e+305");
  EXPECT_EQ(client.store("/voltage", "inf"), ModelRes_Success);
  EXPECT_EQ(client.get("/voltage"), "inf");
  EXPECT_EQ(client.store("/text", std::string(maxValueFileBytes, 'x')), ModelRes_Vetoed);
  EXPECT_EQ(client.get("/text"), "before");
}

TEST_F(FileValues, NotifySubscribersWhenTheFileChangesVanishesAndComesBack) {
  writeText(path("value"), "1\n");
  auto server = test_support::ModelServer::ofTree(R"({"children": [)" +
                                                  entry("value", R"("type": "int32")") + "]}");
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/value"), ModelRes_Success);
  writeText(path("value"), "2\n");
  EXPECT_TRUE(
      client.pumpUntil([&] { return client.updates() >= 1 && client.get("/value") == "2"; }));
  std::filesystem::remove(path("value"));
  EXPECT_TRUE(client.pumpUntil([&] { return client.updates() >= 2; }));
  EXPECT_NE(client.get("/value"), "2");
  writeText(path("new"), "3\n");
  std::filesystem::rename(path("new"), path("value"));
  EXPECT_TRUE(client.pumpUntil([&] { return client.updates() >= 3; }));
  EXPECT_EQ(client.get("/value"), "3");
}

TEST_F(FileValues, AreReadAgainAfterThePeriodWhileSubscribed) {
  writeText(path("target"), "1\n");
  std::filesystem::create_symlink(path("target"), path("value"));
  auto server = test_support::ModelServer::ofTree(
      R"({"children": [)" + entry("value", R"("type": "int32", "period": 10)") + "]}");
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/value"), ModelRes_Success);
  writeText(path("target"), "2\n");
  EXPECT_TRUE(client.pumpUntil([&] { return client.get("/value") == "2"; }));
}

TEST_F(FileValues, FollowTheDescriptionWhenItIsReadAgain) {
  writeText(path("a"), "1\n");
  writeText(path("b"), "2\n");
  const auto describe = [&](const std::string& file) {
    writeText(path("tree.json"), R"({"children": [{"name": "v", "type": "int32", )" + file + "}]}");
  };
  describe("\"file\": \"" + path("a") + '"');
  test_support::ModelServer server({"--tree", path("tree.json")});
  test_support::TreeClient client(server.name());
  EXPECT_EQ(client.get("/v"), "1");
  ASSERT_EQ(client.subscribe("/v"), ModelRes_Success);
  describe("\"file\": \"" + path("b") + '"');
  server.process().signal(SIGHUP);
  EXPECT_TRUE(client.pumpUntil([&] { return client.updates() >= 1; }));
  EXPECT_EQ(client.get("/v"), "2");
  describe("\"value\": 9");
  server.process().signal(SIGHUP);
  EXPECT_TRUE(client.pumpUntil([&] { return client.get("/v") == "9"; }));
  EXPECT_EQ(client.store("/v", "5"), ModelRes_Success);
  EXPECT_EQ(textOfFile(path("b")), "2\n");
}

TEST(SimulatedValues, NotifySubscribersAtEachInterval) {
  auto server = test_support::ModelServer::ofTree(
      R"({"children": [{"name": "v", "type": "double", "simulate": "noise", "interval": 20,
          "seed": 3, "unit": "V"}]})");
  test_support::TreeClient client(server.name());
  ASSERT_EQ(client.subscribe("/v"), ModelRes_Success);
  EXPECT_TRUE(client.pumpUntil([&] { return client.updates() >= 3; }));
  EXPECT_EQ(client.store("/v", "1"), ModelSrv::ModelRes_ReadOnly);
}

}  // namespace
}  // namespace modelsrvd
