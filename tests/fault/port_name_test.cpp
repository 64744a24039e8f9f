#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_BadName;
using ModelSrv::ModelRes_Success;

struct BadName {
  const char* name;
  std::string port;
};

/// How the test list shows a row.
void PrintTo(const BadName& row, std::ostream* out) {
  *out << row.name;
}

std::vector<BadName> badNames() {
  return {
      {"Empty", ""},
      {"Slash", "/"},
      {"LeadingSlash", "/tmp/name"},
      {"SlashInside", "a/b"},
      {"ParentDirectory", "../name"},
      {"Dot", "."},
      {"DotDot", ".."},
      {"LeadingDot", ".x"},
      {"NulInside", std::string("a\0b", 3)},
      {"Semicolon", "a;b"},
      {"ByteOne", "a\x01"},
      {"Tab", "a\tb"},
      {"LineFeed", "a\nb"},
      {"Escape", "a\x1B[2J"},
      {"ByteThirtyOne", "\x1F"},
      {"Delete", "a\x7F"},
      {"OfTwoHundredAndOneBytes", std::string(201, 'n')},
      {"OfAMegabyte", std::string(1 << 20U, 'n')},
  };
}

class BadPortNames : public testing::TestWithParam<BadName> {};

TEST_P(BadPortNames, IsRejectedByServerAndClient) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  ModelSrv::ModelRoot root(&manager);
  EXPECT_EQ(root.startAsServer(GetParam().port), ModelRes_BadName);
  Client client;
  EXPECT_EQ(client.connect(GetParam().port).result, ModelRes_BadName);
}

INSTANTIATE_TEST_SUITE_P(Name, BadPortNames, testing::ValuesIn(badNames()),
                         [](const auto& row) { return std::string(row.param.name); });

class PortNames : public FaultTest {
 protected:
  static void expectServed(const std::string& name) {
    Peer server;
    ASSERT_EQ(server.execute("serve " + name), success());
    Client client;
    EXPECT_EQ(client.connect(name).result, ModelRes_Success);
    EXPECT_EQ(client.get(client.counter).text, "0");
    server.quit();
  }
};

TEST_F(PortNames, NameOfTwoHundredBytesWorks) {
  std::string name = port;
  name.resize(200, 'n');
  expectServed(name);
}

TEST_F(PortNames, NameWithADotInsideWorks) {
  expectServed(port + ".x.fifo");
}

TEST_F(PortNames, NameWithBytesThatAreNotTextWorks) {
  expectServed(port + "_\xC3\xA4\xFF\x80*?");
}

}  // namespace
}  // namespace fault
