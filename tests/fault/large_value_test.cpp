#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_TooLarge;
using ModelSrv::ModelValueText_Max;

class LargeValues : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.execute("serve " + port), success());
    ASSERT_EQ(client_.connect(port).result, ModelRes_Success);
    ASSERT_EQ(client_.store(client_.text, "before").result, ModelRes_Success);
  }

  void expectNothingChanged() {
    EXPECT_EQ(client_.get(client_.text).text, "before");
    EXPECT_EQ(client_.get(client_.counter).text, "0");
  }

  Peer server_;
  Client client_;
};

TEST_F(LargeValues, ValueOfTheLargestSizeIsStoredAndRead) {
  const std::string value = patternText(ModelValueText_Max);
  ASSERT_EQ(client_.store(client_.text, value).result, ModelRes_Success);
  EXPECT_TRUE(client_.get(client_.text).text == value);
}

TEST_F(LargeValues, ValueOneByteAboveTheLimitIsRejectedAndNothingChanges) {
  EXPECT_EQ(client_.store(client_.text, patternText(ModelValueText_Max + 1)).result,
            ModelRes_TooLarge);
  expectNothingChanged();
}

TEST_F(LargeValues, ValueLargerThanAFrameIsRejectedAndNothingChanges) {
  EXPECT_EQ(client_.store(client_.text, patternText(2 * ModelValueText_Max)).result,
            ModelRes_TooLarge);
  expectNothingChanged();
}

TEST_F(LargeValues, ValueOfTheServerItselfAboveTheLimitIsRejectedAndNothingChanges) {
  EXPECT_EQ(server_.execute("settext " + std::to_string(ModelValueText_Max + 1)),
            number(ModelRes_TooLarge));
  expectNothingChanged();
}

TEST_F(LargeValues, ServerRejectsItEvenIfTheClientSendsIt) {
  RawClient client;
  ASSERT_TRUE(client.connect(mailbox));
  const auto reply = client.exchange(
      wire::load, wire::chain({textId}) + wire::u16(wire::wholeValue) + std::string(1, '\0') +
                      std::string(ModelValueText_Max + 1, 'x'));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, ModelRes_TooLarge);
  expectNothingChanged();
}

}  // namespace
}  // namespace fault
