#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

// Valid frames that contain invalid requests: the reply is an error, nothing changes, and
// the connection stays open.

namespace fault {
namespace {

using wire::chain;
using wire::u16;
using wire::wholeValue;

struct BadPayload {
  const char* name;
  std::uint16_t operation;
  std::string payload;
  ModelSrv::ModelRes result = ModelSrv::ModelRes_BadRequest;
};

/// How the test list shows a row.
void PrintTo(const BadPayload& row, std::ostream* out) {
  *out << row.name;
}

std::string storeOf(const std::string& target, const std::string& flagAndText) {
  return target + u16(wholeValue) + flagAndText;
}

std::vector<BadPayload> badPayloads() {
  const std::string counter = chain({counterId});
  const std::string unset(1, '\0');
  return {
      {"OperationZero", 0, counter},
      {"OperationThatDoesNotExist", 11, counter},
      {"PrefetchWithoutANumber", wire::prefetch, counter},
      {"DescriptionWithAnIndex", wire::describe, counter + u16(wholeValue)},
      {"LargestOperation", 65535, counter},
      {"NoChain", wire::save, {}},
      {"HalfADepth", wire::save, std::string(1, '\1')},
      {"DepthWithoutIds", wire::save, u16(1)},
      {"DepthAboveTheIdsThatFollow", wire::childIds, u16(2) + u16(counterId)},
      {"DepthAboveTheLimit", wire::childIds, u16(4097) + std::string(2 * 4097, '\0')},
      {"LargestDepth", wire::childIds, u16(65535) + u16(counterId)},
      {"NoIndex", wire::save, counter},
      {"HalfAnIndex", wire::save, counter + std::string(1, '\0')},
      {"BytesAfterTheIndex", wire::save, counter + u16(wholeValue) + "x"},
      {"BytesAfterTheChain", wire::childIds, chain({}) + "x"},
      {"StoreWithoutAFlag", wire::load, counter + u16(wholeValue)},
      {"StoreWithAnInvalidFlag", wire::load,
       storeOf(counter,
               "\2"
               "7")},
      {"SubscriptionWithoutAnIndex", wire::subscribe, counter},
      {"PartThatDoesNotExist", wire::save, chain({9999}) + u16(wholeValue),
       ModelSrv::ModelRes_NoSuchPart},
      {"PartBelowAPart", wire::save, chain({counterId, 0}) + u16(wholeValue),
       ModelSrv::ModelRes_NoSuchPart},
      {"ChainOfTheLargestDepth", wire::childIds, u16(4096) + std::string(2 * 4096, '\0'),
       ModelSrv::ModelRes_NoSuchPart},
      {"IndexThatDoesNotExist", wire::save, chain({counterId}) + u16(5),
       ModelSrv::ModelRes_NoSuchIndex},
      {"TextThatIsNotANumber", wire::load, storeOf(counter, unset + "seven"),
       ModelSrv::ModelRes_BadText},
      {"NumberThatIsTooLarge", wire::load, storeOf(counter, unset + "18446744073709551616"),
       ModelSrv::ModelRes_OutOfRange},
      {"ValueOfANode", wire::save, chain({manyId}) + u16(wholeValue), ModelSrv::ModelRes_NoValue},
  };
}

class BadPayloads : public FaultTest, public testing::WithParamInterface<BadPayload> {};

TEST_P(BadPayloads, GetsAnErrorAndTheConnectionStaysOpen) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  ASSERT_EQ(server.execute("set 7"), success());
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const auto error = client.exchange(GetParam().operation, GetParam().payload);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, GetParam().result);
  EXPECT_EQ(error->payload, "");
  const auto value = client.exchange(wire::save, chain({counterId}) + u16(wholeValue));
  ASSERT_TRUE(value);
  EXPECT_EQ(value->payload, "7");
}

INSTANTIATE_TEST_SUITE_P(Request, BadPayloads, testing::ValuesIn(badPayloads()),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace fault
