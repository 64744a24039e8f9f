#include <memory>
#include <vector>

#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_NoDescriptors;
using ModelSrv::ModelRes_Success;

constexpr std::size_t pipesPerClient = 3;

class OutOfDescriptorsTest : public FaultTest {
 protected:
  void SetUp() override {
    if (sanitizerNeedsDescriptors()) {
      GTEST_SKIP() << "the sanitizer itself would run out of descriptors";
    }
    ASSERT_EQ(server_.ask("serve " + port), success());
    before_ = descriptorCount(server_.pid());
  }

  /// Leaves the server room for `more` descriptors than it has now.
  void limitServer(std::size_t more) {
    ASSERT_EQ(server_.ask("room " + std::to_string(more)), "ok");
  }

  Peer server_;
  std::size_t before_ = 0;
};

TEST_F(OutOfDescriptorsTest, ServerRefusesFurtherClientsAtOnceAndServesTheOthers) {
  limitServer(2 * pipesPerClient + 1);
  Client first;
  Client second;
  ASSERT_EQ(first.connect(port).result, ModelRes_Success);
  ASSERT_EQ(second.connect(port).result, ModelRes_Success);
  const std::size_t before = descriptorCount(server_.pid());
  for (int i = 0; i < 10; ++i) {
    Client further;
    const Answer answer = further.connect(port);
    EXPECT_EQ(answer.result, ModelRes_NoDescriptors);
    EXPECT_LT(answer.elapsed, atOnce);
  }
  EXPECT_EQ(first.get(first.counter).text, "0");
  EXPECT_EQ(second.get(second.counter).text, "0");
  EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before; }));
}

TEST_F(OutOfDescriptorsTest, ServerHasRoomAgainAfterAClientLeft) {
  limitServer(pipesPerClient);
  auto first = std::make_unique<Client>();
  ASSERT_EQ(first->connect(port).result, ModelRes_Success);
  Client next;
  ASSERT_EQ(next.connect(port).result, ModelRes_NoDescriptors);
  const std::size_t full = descriptorCount(server_.pid());
  first.reset();
  ASSERT_TRUE(eventually([&] { return descriptorCount(server_.pid()) < full; }));
  EXPECT_EQ(next.connect(port).result, ModelRes_Success);
  EXPECT_EQ(next.get(next.counter).text, "0");
}

TEST_F(OutOfDescriptorsTest, ServerRefusesCleanlyWhereverItRunsOut) {
  for (std::size_t more = 0; more < pipesPerClient; ++more) {
    limitServer(more);
    Client client;
    const Answer answer = client.connect(port);
    EXPECT_EQ(answer.result, ModelRes_NoDescriptors) << more << " descriptors were left";
    EXPECT_LT(answer.elapsed, atOnce);
    EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before_; }));
    limitServer(pipesPerClient);
    EXPECT_EQ(client.connect(port).result, ModelRes_Success);
    client.root.stop(true);
    EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before_; }));
  }
}

TEST_F(OutOfDescriptorsTest, ClientGetsAClearResultAndLeaksNothingWhereverItRunsOut) {
  Peer client;
  ASSERT_EQ(client.ask("prepare"), "ok");
  const std::size_t before = descriptorCount(client.pid());
  std::string result;
  std::size_t more = 0;
  for (; more < 32 && result != success(); ++more) {
    ASSERT_EQ(client.ask("room " + std::to_string(more)), "ok");
    result = client.ask("connect " + port);
    if (result != success()) {
      EXPECT_EQ(result, number(ModelRes_NoDescriptors)) << more << " descriptors were left";
      EXPECT_EQ(descriptorCount(client.pid()), before);
    }
  }
  EXPECT_GT(more, pipesPerClient) << "no limit was met";
  EXPECT_EQ(result, success());
  EXPECT_EQ(client.ask("get"), success() + " 0");
  EXPECT_TRUE(namedPrivatePipes(client.pid()).empty());
}

TEST_F(OutOfDescriptorsTest, ServingGivesAClearResultAndLeaksNothingWhereverItRunsOut) {
  const std::string other = port + "_other";
  Peer peer;
  ASSERT_EQ(peer.ask("serve ." + other), number(ModelSrv::ModelRes_BadName));
  const std::size_t before = descriptorCount(peer.pid());
  std::string result;
  std::size_t more = 0;
  for (; more < 32 && result != success(); ++more) {
    ASSERT_EQ(peer.ask("room " + std::to_string(more)), "ok");
    result = peer.ask("serve " + other);
    if (result != success()) {
      EXPECT_EQ(result, number(ModelRes_NoDescriptors)) << more << " descriptors were left";
      EXPECT_EQ(descriptorCount(peer.pid()), before);
    }
  }
  EXPECT_GT(more, 1U) << "no limit was met";
  EXPECT_EQ(result, success());
  peer.quit();
  EXPECT_NE(::access(pathOf(other).c_str(), F_OK), 0);
}

TEST_F(OutOfDescriptorsTest, ManagerWithoutDescriptorsSaysSo) {
  Peer peer;
  ASSERT_EQ(peer.ask("room 0"), "ok");
  EXPECT_EQ(peer.ask("connect " + port), number(ModelRes_NoDescriptors));
  EXPECT_EQ(peer.ask("serve " + port), number(ModelRes_NoDescriptors));
}

}  // namespace
}  // namespace fault
