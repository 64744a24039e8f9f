#include <thread>

#include "modelsrv/part_description.h"
#include "tests/fault/raw_server_test.h"
#include "tests/support/pump.h"

// Descriptions and the reasons of refused stores, byte by byte, and between peers of which one
// does not know them.

namespace fault {
namespace {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_Vetoed;
using ModelSrv::PartDescription;
using wire::chain;
using wire::u16;
using wire::wholeValue;

std::string counted(const std::string& text) {
  return u16(static_cast<std::uint16_t>(text.size())) + text;
}

TEST_F(FaultTest, DescriptionAndReasonHaveTheDocumentedBytes) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  ModelSrv::ModelRoot root(&manager);
  ModelSrv::ArrayPart<double> gains(5, "gains", {1, 2}, {"p", "i"},
                                    ModelSrv::ModelPartStatus_Protected);
  gains.setSubscribable(false);
  ASSERT_EQ(gains.setAttributes({"V", "0", "5", "supply", {}}), ModelRes_Success);
  ASSERT_EQ(root.add(&gains), ModelRes_Success);
  ASSERT_EQ(root.startAsServer(port), ModelRes_Success);
  const test_support::Pump pump(manager);
  RawClient client;
  EXPECT_TRUE(client.connect(mailbox));
  const auto described = client.exchange(wire::describe, chain({5}));
  const auto refused =
      client.exchange(wire::load, chain({5}) + u16(1) + std::string(1, '\1') + "5.5");
  const auto stored = client.exchange(wire::load, chain({5}) + u16(1) + std::string(1, '\1') + "4");
  ASSERT_TRUE(described && refused && stored);
  EXPECT_EQ(described->code, 0);
  EXPECT_EQ(described->payload, counted("double") + u16(3) + std::string(1, '\0') + u16(2) +
                                    u16(2) + counted("p") + counted("i") + u16(4) + u16(1) +
                                    counted("V") + u16(2) + counted("0") + u16(3) + counted("5") +
                                    u16(4) + counted("supply"));
  EXPECT_EQ(refused->code, ModelSrv::ModelRes_OutOfRange);
  EXPECT_EQ(refused->payload, "gains[1] 5.5 is not within 0 to 5");
  EXPECT_EQ(stored->code, 0);
  EXPECT_EQ(stored->payload, "");
}

class OtherBuild : public RawServerTest {};

TEST_F(OtherBuild, OfAServerWithoutDescriptionsGivesTheElements) {
  Client client(false);
  connect(client);
  for (int time = 0; time < 2; ++time) {
    PartDescription description;
    std::thread serving([&] {
      if (time == 0) {
        reply(wire::describe, wire::badRequest);
      }
      reply(wire::childIds, 0, u16(0));
      reply(wire::elementSum, 0, u16(2));
      reply(wire::elementNames, 0, u16(2) + counted("p") + counted("i"));
    });
    EXPECT_EQ(client.counter.describe(description), ModelRes_Success);
    serving.join();
    EXPECT_EQ(description, (PartDescription{"", 0, true, 2, {"p", "i"}, {}}));
  }
}

TEST_F(OtherBuild, OfAServerThatSendsAnInvalidDescriptionIsAProtocolError) {
  Client client(false);
  connect(client);
  PartDescription description{"kept", 0, true, 0, {}, {}};
  for (const std::string& payload : {std::string(), u16(65535), counted("int8") + u16(1)}) {
    std::thread serving([&] { reply(wire::describe, 0, payload); });
    EXPECT_EQ(client.counter.describe(description), ModelSrv::ModelRes_Protocol);
    serving.join();
  }
  EXPECT_EQ(description.type, "kept");
}

TEST_F(OtherBuild, OfAServerThatSendsAnyBytesAsAReasonGivesALine) {
  Client client(false);
  connect(client);
  const struct {
    std::string payload;
    std::string reason;
  } cases[] = {{"", ModelSrv::describe(ModelRes_Vetoed)},
               {"closed for repair", "closed for repair"},
               {"\x1b[2J\xff\n", "?[2J??"},
               {std::string(100000, 'x'), std::string(512, 'x')}};
  for (const auto& c : cases) {
    std::thread serving([&] { reply(wire::load, ModelRes_Vetoed, c.payload); });
    std::string reason;
    EXPECT_EQ(client.counter.store("7", false, wholeValue, reason), ModelRes_Vetoed);
    serving.join();
    EXPECT_EQ(reason, c.reason);
  }
}

}  // namespace
}  // namespace fault
