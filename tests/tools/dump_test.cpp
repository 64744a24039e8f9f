#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/tools/treectl_fixture.h"

namespace treectl {
namespace {

using Dump = TreectlTest;
using test_support::Finished;

/// The text without the time in its header.
std::string withoutTime(std::string text) {
  const std::size_t at = text.find(",\"time\":\"");
  EXPECT_NE(at, std::string::npos) << text;
  EXPECT_THAT(text.substr(at, 38),
              testing::MatchesRegex(",\"time\":\"....-..-..T..:..:..\\.......Z\"}"));
  return text.erase(at, 37);
}

TEST_F(Dump, HasAHeaderAndAnObjectAPart) {
  EXPECT_EQ(
      withoutTime(output({"dump", "/{S}/settings"})),
      filled("[\n{\"format\":1,\"base\":\"/{S}/settings\"},\n"
             "{\"address\":\"/setpoint\",\"type\":\"int32\",\"access\":\"rw\",\"value\":10},\n"
             "{\"address\":\"/mode\",\"type\":\"text\",\"access\":\"rw\",\"value\":\"off\"},\n"
             "{\"address\":\"/big\",\"type\":\"uint64\",\"access\":\"rw\","
             "\"value\":18446744073709551615},\n"
             "{\"address\":\"/low\",\"type\":\"int64\",\"access\":\"rw\","
             "\"value\":-9223372036854775808},\n"
             "{\"address\":\"/ratio\",\"type\":\"double\",\"access\":\"rw\",\"value\":0.1}\n]\n"));
  EXPECT_EQ(
      withoutTime(output({"dump", "-s", "{S}", "/drive/gains"})),
      filled("[\n{\"format\":1,\"base\":\"/{S}/drive/gains\"},\n"
             "{\"address\":\"\",\"type\":\"double\",\"access\":\"rw\",\"value\":[1.5,0.25]}\n]\n"));
  EXPECT_EQ(withoutTime(output({"dump", "/{S}/*/se*l"})),
            filled("[\n{\"format\":1,\"base\":\"/{S}\"},\n{\"address\":\"/drive/serial\","
                   "\"type\":\"text\",\"access\":\"ro\",\"value\":\"A-17\"}\n]\n"));
  EXPECT_EQ(withoutTime(output({"dump", "/{S}/empty"})),
            filled("[\n{\"format\":1,\"base\":\"/{S}/empty\"}\n]\n"));
}

TEST_F(Dump, TakesThePlaceOfAFileAtOnce) {
  const std::string file = files().write("dump.json", "old");
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  std::filesystem::create_symlink("dump.json", files().file("link"));
  expect({{"dump", "/{S}/empty", "-o", "{D}/link"}});
  EXPECT_THAT(files().read("dump.json"), testing::StartsWith("[\n{\"format\":1"));
  EXPECT_TRUE(std::filesystem::is_symlink(files().file("link")));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
  expect({{"dump", "/{S}/none", "-o", "{D}/dump.json"},
          3,
          "",
          "treectl: /{S}/none: part none: no such part (nearest: notes)\n"});
  EXPECT_THAT(files().read("dump.json"), testing::StartsWith("[\n{\"format\":1"));
  expect({{"dump", "/{S}/empty", "-o", "{D}/none/dump.json"},
          9,
          "",
          "treectl: {D}/none/dump.json: No such file or directory\n"});
  expect({{"dump", "/{S}/empty", "-o", "/dev/full"},
          9,
          "",
          "treectl: /dev/full: No space left on device\n"});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(files().path()), {}), 2);
}

TEST_F(Dump, IsTheSameInAFile) {
  const auto normalized = [](std::string dump) { return withoutTime(std::move(dump)); };
  for (const char* const address :
       {"/{S}", "/{S}/drive", "/{S}/notes", "/{S}/empty", "/{S}/drive/gains[1]", "/{S}/**"}) {
    expect({{"dump", address, "-o", "{D}/dump.json"}});
    EXPECT_EQ(normalized(files().read("dump.json")), normalized(output({"dump", address})))
        << address;
  }
  // With a limit below the default one it is made in memory.
  expect({{"dump", "--timeout", "1.5", "/{S}", "-o", "{D}/dump.json"}});
  EXPECT_EQ(normalized(files().read("dump.json")), normalized(output({"dump", "/{S}"})));
}

TEST_F(Dump, IsTheSamePartByPart) {
  // Several pieces of output; names that ascend, that do not, that repeat, and that need escapes.
  std::string children;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = std::to_string(i < 1000 ? i + 1000 : 5000 - i % 700);
    children += R"({"name": "n)" + name + R"(", "type": ")" + (i % 3 == 0 ? "text" : "float") +
                R"(", "value": )" + (i % 3 == 0 ? "\"a\\u0001\\\"\\\\\\u00e9\"" : "-0.5") + "},";
  }
  const test_support::ModelServer server({"--tree", files().write("tree.json", R"({"name": "M",
    "children": [{"name": "many", "children": [)" + children + R"({"name": "", "type": "bool",
      "value": true}, {"name": "a/b\"\u00e9\u007f", "type": "uint64", "value": 7}]},
      {"name": "", "children": [{"name": "x", "type": "text", "value": ""},
        {"name": "y", "type": "float", "value": 0}, {"name": "x", "type": "float",
        "elements": [{"value": 1}, {"value": 2}]}]}]})")});
  const std::string unnamed = "/" + server.name() + "/#2/";
  expect({{"set", unnamed + "y", "-inf", unnamed + "#3[1]", "nan"}});
  const std::string dump = withoutTime(output({"dump", "/" + server.name()}));
  EXPECT_GT(dump.size(), 150000U);
  EXPECT_EQ(withoutTime(output({"dump", "/" + server.name() + "/**"})), dump);
  EXPECT_EQ(withoutTime(output({"dump", "--timeout", "1.9", "/" + server.name()})), dump);
}

TEST_F(Dump, HasTheServersOrder) {
  const test_support::ModelServer server({"--tree", files().write("tree.json", R"({"name": "M",
    "children": [{"id": 5, "name": "a", "type": "int32", "value": 1},
      {"id": 7, "name": "n", "children": [{"id": 2, "name": "x", "type": "int32", "value": 2},
                                         {"id": 1, "name": "x", "type": "int32", "value": 3}]},
      {"id": 6, "name": "b", "type": "int32", "value": 4}]})")});
  expect({{"dump", "/" + server.name(), "-o", "{D}/dump.json"}});
  const std::string dump = files().read("dump.json");
  EXPECT_EQ(withoutTime(dump), withoutTime(output({"dump", "/" + server.name()})));
  std::string addresses;
  for (std::size_t at = 0; (at = dump.find("\"address\":\"", at)) != std::string::npos; ++at) {
    addresses += dump.substr(at + 11, dump.find('"', at + 11) - at - 11) + ' ';
  }
  EXPECT_EQ(addresses, "/a /n/x /n/#1 /b ");
}

/// The most memory that a run of the program has, in KiB; 0 if it fails.
long peakMemory(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), treectlProgram());
  std::vector<char*> words;
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  pid_t child = 0;
  int status = -1;
  rusage usage{};
  EXPECT_EQ(::posix_spawn(&child, words[0], nullptr, nullptr, words.data(), environ), 0);
  EXPECT_EQ(::wait4(child, &status, 0, &usage), child);
  EXPECT_EQ(status, 0);
  return usage.ru_maxrss;
}

TEST_F(Dump, IntoAFileTakesNoMoreMemoryForManyParts) {
  const test_support::ModelServer few({"--synthetic", "10x100"});
  const test_support::ModelServer many({"--synthetic", "500x100"});
  const std::string file = files().file("dump.json");
  const long least = peakMemory({"dump", "/" + few.name(), "-o", file});
  const long most = peakMemory({"dump", "/" + many.name(), "-o", file});
  EXPECT_GT(fileSize("dump.json"), 3000000U);
  if (!test_support::sanitized) {
    // Two pages of the tree, and a piece of the file.
    EXPECT_LT(most, least + 1024);
  }
}

TEST_F(Dump, IsRestored) {
  expect({{"dump", "/{S}", "-o", "{D}/dump.json"}});
  expect({{"diff", "{D}/dump.json"}});
  expect({{"restore", "{D}/dump.json"}, 0, "", "stored 0, same 17, skipped 1, refused 0\n"});
  expect({{"set", "--protected", "/{S}/drive/speed", "1", "/{S}/drive/gains[1]", "2",
           "/{S}/a\\/b\\*c\\?\\[d\\]\\\\e", "3\nabc", "/{S}/drive/offset", "4", "/{S}/notes[0]",
           "5"}});
  expect({{"diff", "{D}/dump.json"},
          1,
          "- /drive/speed\t42\n+ /drive/speed\t1\n- /drive/gains\t1.5 0.25\n"
          "+ /drive/gains\t1.5 2\n- /drive/offset\t0\n+ /drive/offset\t4\n"
          "- /a\\/b\\*c\\?\\[d\\]\\\\e\ttab\\there\\nback\\\\slash \\x01\n"
          "+ /a\\/b\\*c\\?\\[d\\]\\\\e\t3\\nabc\n- /notes\tone\\ntwo x\n+ /notes\t5 x\n"});
  expect({{"restore", "--dry-run", "{D}/dump.json"},
          5,
          "/{S}/drive/speed\t42\n/{S}/drive/gains\t1.5 0.25\n"
          "/{S}/a\\/b\\*c\\?\\[d\\]\\\\e\ttab\\there\\nback\\\\slash \\x01\n"
          "/{S}/notes\tone\\ntwo x\n",
          "treectl: /{S}/drive/offset: the part is protected (see --protected)\n"
          "would store 4, same 12, skipped 1, refused 1\n"});
  expect({{"restore", "{D}/dump.json"},
          5,
          "",
          "treectl: /{S}/drive/offset: the part is protected (see --protected)\n"
          "stored 4, same 12, skipped 1, refused 1\n"});
  expect({{"restore", "--protected", "{D}/dump.json", "/{S}"},
          0,
          "",
          "stored 1, same 16, skipped 1, refused 0\n"});
  expect({{"diff", "{D}/dump.json", "/{S}"}});
}

TEST_F(Dump, KeepsTheSignOfZero) {
  expect({{"set", "/{S}/settings/ratio", "-0"}});
  expect({{"dump", "/{S}/settings/ratio", "-o", "{D}/zero.json"}});
  expect({{"set", "/{S}/settings/ratio", "1"}});
  expect({{"restore", "{D}/zero.json"}, 0, "", "stored 1, same 0, skipped 0, refused 0\n"});
  expect({{"get", "/{S}/settings/ratio"}, 0, "-0\n"});
}

TEST_F(Dump, IsRestoredAtAnotherAddress) {
  static_cast<void>(files().write(
      "other.json",
      "[{\"format\":1,\"base\":\"/Model_none/x\"},\n"
      "{\"address\":\"/setpoint\",\"value\":99},{\"address\":\"/none\",\"value\":1},\n"
      "{\"address\":\"/mode\",\"value\":\"fast\",\"more\":{\"a\":[1,{}]}},\n"
      "{\"address\":\"/ratio\",\"type\":\"double\",\"value\":1e-1}]"));
  expect({{"restore", "{D}/other.json", "/{S}/settings/"},
          5,
          "",
          "treectl: /{S}/settings/setpoint: 99 is not within 5 to 30\n"
          "treectl: /{S}/settings/none: no such part\n"
          "stored 1, same 1, skipped 0, refused 2\n"});
  expect({{"get", "-s", "{S}", "/settings/mode"}, 0, "fast\n"});
  EXPECT_EQ(runTreectl({"restore", files().file("other.json")}).status,
            (test_support::ExitStatus{4, 0}));
}

TEST_F(Dump, IsAlsoWhatTheShellSaves) {
  const std::string saved = files().file("saved.txt");
  EXPECT_EQ(test_support::run({test_support::treescopeProgram(), "-c",
                               "cd " + server().name() + ";cd settings;to " + saved})
                .status,
            test_support::ExitStatus{});
  expect({{"set", "/{S}/settings/setpoint", "20", "/{S}/settings/mode", "slow"}});
  expect({{"restore", "{D}/saved.txt"},
          2,
          "",
          "treectl: {D}/saved.txt: has no base; expected an address after it\n"});
  expect({{"restore", "{D}/saved.txt", "/{S}"}, 0, "", "stored 2, same 3, skipped 0, refused 0\n"});
  static_cast<void>(
      files().write("lines.txt",
                    "\nset 3 /drive/gains[1]\nstr \"a \" b\" /drive/label\nset 8 /drive/noname-12\n"
                    "set 1 /drive/gains[9]\nstr \"\" /empty\n"));
  expect({{"restore", "{D}/lines.txt", "/{S}"},
          5,
          "",
          "treectl: /{S}/drive/gains[9]: no such element\n"
          "stored 3, same 0, skipped 1, refused 1\n"});
  expect({{"get", "/{S}/drive/gains[1]", "/{S}/drive/label", "/{S}/drive/#12"},
          0,
          "/{S}/drive/gains[1]\t3\n/{S}/drive/label\ta \" b\n/{S}/drive/#12\t8\n"});
}

TEST_F(Dump, IsRejectedIfItIsNone) {
  const std::pair<const char*, const char*> cases[] = {
      {"[{\"format\":2}]", "expected a header of format 1"},
      {"", "the file is empty"},
      {"[]", "expected a header of format 1"},
      {"{\"format\":1}", "expected an array, got an object (a recording is for replay)"},
      {"[{\"format\":1},", "no JSON at byte 15"},
      {"[{\"format\":1},{\"address\":\"/x\"}]",
       "expected \"address\" and \"value\" in each object after the first"},
      {"[{\"format\":1},{\"value\":1}]",
       "expected \"address\" and \"value\" in each object after the first"},
      {"[{\"format\":1},{\"address\":\"/x\",\"value_base64\":\"!\"}]", "/x: no Base64"},
      {"[{\"format\":1},{\"address\":\"/x\",\"value\":null}]", "/x: expected a value, got null"},
      {"[{\"format\":1},{\"address\":\"/x\",\"value\":[1,null]}]",
       "/x: expected a value, got null"},
      {"get /x",
       "line 1: expected a dump, or \"set VALUE PATH\" or \"str \"VALUE\" PATH\" as `to` writes "
       "it"}};
  for (const auto& [text, error] : cases) {
    static_cast<void>(files().write("bad", text));
    for (const char* const command : {"restore", "diff"}) {
      expect(
          {{command, "{D}/bad", "/{S}"}, 9, "", "treectl: {D}/bad: " + std::string(error) + '\n'});
    }
  }
  expect(
      {{"restore", "{D}/none", "/{S}"}, 9, "", "treectl: {D}/none: No such file or directory\n"});
}

TEST_F(Dump, IsComparedWithTreesAndFiles) {
  const std::string dump = output({"dump", "/{S}/settings"});
  expect({{"diff", "-", "/{S}/settings"}, 0, "", "", dump});
  expect({{"diff", "/{S}/settings", "-"}, 0, "", "", dump});
  expect({{"diff", "-"}, 0, "", "", dump});
  expect({{"diff", "/{S}/settings/mode", "/{S}/drive/label"}, 1, "- \toff\n+ \ttwo words\n"});
  expect({{"diff", "--json", "/{S}/settings/mode", "/{S}/empty"},
          1,
          "{\"address\":\"\",\"type\":\"text\",\"access\":\"rw\",\"value\":\"off\","
          "\"event\":\"removed\"}\n"});
  expect({{"diff", "--color=always", "/{S}/empty", "/{S}/settings/mode"},
          1,
          "\x1B[32m+ \toff\x1B[0m\n"});
  expect({{"diff", "/{S}/settings"},
          2,
          "",
          "treectl: \"/{S}/settings\": no file, and nothing to compare it with\n"});
  expect({{"diff", "-", "-"}, 2, "", "treectl: -: expected once\n"});
}

}  // namespace
}  // namespace treectl
