#pragma once

#include "tests/fault/fault_test.h"

namespace fault {

/// A server with a client that must not be affected by what happens to another client.
class OtherClientTest : public FaultTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(server_.execute("serve " + port), success());
    // This client does not connect again, so a closed connection would show.
    ASSERT_EQ(otherClient_.connect(port).result, ModelSrv::ModelRes_Success);
    ASSERT_EQ(otherClient_.subscribe(otherClient_.counter), ModelSrv::ModelRes_Success);
    before_ = descriptorCount(server_.pid());
  }

  /// The server has closed what belonged to other clients, and serves this one.
  void expectOtherUnaffected() {
    EXPECT_TRUE(eventually([this] { return descriptorCount(server_.pid()) == before_; }))
        << descriptorCount(server_.pid()) << " descriptors, before " << before_;
    const unsigned updates = otherClient_.counter.updates();
    ASSERT_EQ(server_.execute("set 77"), success());
    EXPECT_TRUE(otherClient_.pumpUntil([&] { return otherClient_.counter.updates() > updates; }));
    EXPECT_EQ(otherClient_.get(otherClient_.counter).text, "77");
  }

  Peer server_;
  Client otherClient_{false};
  std::size_t before_ = 0;  ///< the server's descriptors
};

}  // namespace fault
