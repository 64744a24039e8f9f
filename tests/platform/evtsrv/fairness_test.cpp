#include <gtest/gtest.h>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

namespace EvtSrv::internal {
namespace {

/// A server whose requests take 100 microseconds, and two clients.
class Fairness : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.port.onRequest = [this] {
      const std::int64_t end = server.system.nowNs() + 100'000;
      while (server.system.nowNs() < end) {
      }
    };
    for (RawClient* client : {&flooder, &honest}) {
      client->makePipes();
      client->writeToMailbox(name, client->hello());
      server.serveAll();
      // Who has made a request that delayed no client is no newcomer.
      client->writeRequest(frame(FrameKind::request, 6, 1, ""));
      server.serveAll();
      RawClient::readAll(client->reply);
    }
    server.port.handled = 0;
  }
  void flood(int requests) const {
    Bytes all;
    for (int i = 0; i < requests; ++i) {
      const Bytes one = frame(FrameKind::request, 5, 1, "");
      all.insert(all.end(), one.begin(), one.end());
    }
    flooder.writeRequest(all);
  }

  std::string name = uniquePort();
  EchoServer server;
  RawClient flooder;
  RawClient honest;
};

TEST_F(Fairness, AConnectionIsServedBetweenThePipelinedRequestsOfAnother) {
  flood(1000);
  static_cast<void>(server.core.receive(0));
  honest.writeRequest(frame(FrameKind::request, 7, 9, "me too"));
  static_cast<void>(server.core.receive(0));
  EXPECT_EQ(RawClient::readAll(honest.reply), frame(FrameKind::reply, 7, 9, "me too"));
  EXPECT_LT(server.port.handled, 100);
  server.serveAll();
  EXPECT_EQ(server.port.handled, 1001) << "what was read stays queued";
}

TEST_F(Fairness, TheManagerDoesNotSleepWhileTurnsWait) {
  flood(500);
  while (server.port.handled < 500) {
    ASSERT_EQ(server.core.receive(10'000), EvtRes_Success);
  }
  EXPECT_EQ(server.core.receive(0), EvtRes_Timeout);
}

TEST_F(Fairness, AConnectionThatEndsWithRequestsQueuedIsClosed) {
  flood(1000);
  static_cast<void>(server.core.receive(0));
  ::close(flooder.reply);
  flooder.reply = -1;
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 1U);
  EXPECT_LT(server.port.handled, 200);
}

}  // namespace
}  // namespace EvtSrv::internal
