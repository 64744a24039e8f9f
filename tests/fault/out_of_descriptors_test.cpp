#include <memory>
#include <vector>

#include "tests/fault/fault_test.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_NoDescriptors;
using ModelSrv::ModelRes_Success;

constexpr std::size_t pipesPerClient = 3;

class OutOfDescriptors : public FaultTest {
 protected:
  void SetUp() override {
    if (test_support::checksVirtualCalls) {
      GTEST_SKIP() << "the sanitizer itself needs descriptors";
    }
    ASSERT_EQ(server_.execute("serve " + port), success());
    before_ = descriptorCount(server_.pid());
  }

  /// Lets the server open only `more` descriptors from now on.
  void limitServer(std::size_t more) {
    ASSERT_EQ(server_.execute("spare " + std::to_string(more)), "ok");
  }

  Peer server_;
  std::size_t before_ = 0;
};

TEST_F(OutOfDescriptors, ServerRefusesFurtherClientsImmediatelyAndServesTheOthers) {
  limitServer(2 * pipesPerClient + 1);
  Client first;
  Client second;
  ASSERT_EQ(first.connect(port).result, ModelRes_Success);
  ASSERT_EQ(second.connect(port).result, ModelRes_Success);
  const std::size_t before = descriptorCount(server_.pid());
  for (int i = 0; i < 10; ++i) {
    Client further;
    const Reply reply = further.connect(port);
    EXPECT_EQ(reply.result, ModelRes_NoDescriptors);
    EXPECT_LT(reply.elapsed, immediateLimit);
  }
  EXPECT_EQ(first.get(first.counter).text, "0");
  EXPECT_EQ(second.get(second.counter).text, "0");
  EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before; }));
}

TEST_F(OutOfDescriptors, ServerAcceptsAClientAgainAfterAnotherHasDisconnected) {
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

TEST_F(OutOfDescriptors, ServerRefusesAClientAtEveryDescriptorThatIsMissing) {
  for (std::size_t more = 0; more < pipesPerClient; ++more) {
    limitServer(more);
    Client client;
    const Reply reply = client.connect(port);
    EXPECT_EQ(reply.result, ModelRes_NoDescriptors) << more << " descriptors were left";
    EXPECT_LT(reply.elapsed, immediateLimit);
    EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before_; }));
    limitServer(pipesPerClient);
    EXPECT_EQ(client.connect(port).result, ModelRes_Success);
    client.root.stop(true);
    EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before_; }));
  }
}

TEST_F(OutOfDescriptors, ConnectingReturnsAnErrorAndLeaksNothingAtEveryDescriptorThatIsMissing) {
  Peer client;
  ASSERT_EQ(client.execute("prepare"), "ok");
  const std::size_t before = descriptorCount(client.pid());
  std::string result;
  std::size_t more = 0;
  for (; more < 32 && result != success(); ++more) {
    ASSERT_EQ(client.execute("spare " + std::to_string(more)), "ok");
    result = client.execute("connect " + port);
    if (result != success()) {
      EXPECT_EQ(result, number(ModelRes_NoDescriptors)) << more << " descriptors were left";
      EXPECT_EQ(descriptorCount(client.pid()), before);
    }
  }
  EXPECT_GT(more, pipesPerClient) << "the limit was never reached";
  EXPECT_EQ(result, success());
  EXPECT_EQ(client.execute("get"), success() + " 0");
  EXPECT_TRUE(namedPrivatePipes(client.pid()).empty());
}

TEST_F(OutOfDescriptors, ServingReturnsAnErrorAndLeaksNothingAtEveryDescriptorThatIsMissing) {
  const std::string other = port + "_other";
  Peer peer;
  ASSERT_EQ(peer.execute("serve ." + other), number(ModelSrv::ModelRes_BadName));
  const std::size_t before = descriptorCount(peer.pid());
  std::string result;
  std::size_t more = 0;
  for (; more < 32 && result != success(); ++more) {
    ASSERT_EQ(peer.execute("spare " + std::to_string(more)), "ok");
    result = peer.execute("serve " + other);
    if (result != success()) {
      EXPECT_EQ(result, number(ModelRes_NoDescriptors)) << more << " descriptors were left";
      EXPECT_EQ(descriptorCount(peer.pid()), before);
    }
  }
  EXPECT_GT(more, 1U) << "the limit was never reached";
  EXPECT_EQ(result, success());
  peer.quit();
  EXPECT_NE(::access(pathOf(other).c_str(), F_OK), 0);
}

TEST_F(OutOfDescriptors, ManagerWithoutDescriptorsReturnsAnError) {
  Peer peer;
  ASSERT_EQ(peer.execute("spare 0"), "ok");
  EXPECT_EQ(peer.execute("connect " + port), number(ModelRes_NoDescriptors));
  EXPECT_EQ(peer.execute("serve " + port), number(ModelRes_NoDescriptors));
}

}  // namespace
}  // namespace fault
