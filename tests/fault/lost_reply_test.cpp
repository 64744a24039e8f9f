#include <thread>

#include "tests/fault/raw_server_test.h"

// A connection that ends after a request was written and before its reply came.

namespace fault {
namespace {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_OutcomeUnknown;
using ModelSrv::ModelRes_Success;
using ModelSrv::ModelRes_Timeout;

class LostReply : public RawServerTest {
 protected:
  /// Serves one connection on a thread of its own while `request` runs.
  template <typename Serve, typename Request>
  static void during(Serve serve, Request request) {
    std::thread serving(serve);
    request();
    serving.join();
  }

  /// Reads a request of operation `code` and ends the connection without a reply.
  void loseReply(std::uint16_t code) {
    const auto request = server_.readRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->code, code);
    endConnection();
  }

  void endConnection() {
    server_.requests.close();
    server_.replies.close();
    server_.events.close();
  }
};

TEST_F(LostReply, OfAStoreIsReportedAndTheStoreIsNotSentAgain) {
  Client client;
  connect(client);
  during([this] { loseReply(wire::load); },
         [&] {
           const Reply reply = client.store(client.counter, "7");
           EXPECT_EQ(reply.result, ModelRes_OutcomeUnknown);
           EXPECT_LT(reply.elapsed, immediateLimit);
         });
  // The first request on the next connection is the next one of the client.
  during(
      [this] {
        ASSERT_TRUE(server_.accept());
        reply(wire::save, ModelRes_Success, "7");
      },
      [&] { EXPECT_EQ(client.get(client.counter).text, "7"); });
}

TEST_F(LostReply, OfAStoreIsReportedIfTheManagerDoesNotReconnect) {
  Client client(false);
  connect(client);
  during([this] { loseReply(wire::load); },
         [&] { EXPECT_EQ(client.store(client.counter, "7").result, ModelRes_OutcomeUnknown); });
  EXPECT_EQ(client.store(client.counter, "7").result, ModelSrv::ModelRes_NotConnected)
      << "nothing of this store was written";
}

TEST_F(LostReply, ThatIsGarbageLeavesTheOutcomeOfAStoreUnknown) {
  Client client;
  connect(client);
  during(
      [this] {
        ASSERT_TRUE(server_.readRequest());
        ASSERT_TRUE(server_.replies.write("this is not a reply"));
      },
      [&] { EXPECT_EQ(client.store(client.counter, "7").result, ModelRes_OutcomeUnknown); });
}

TEST_F(LostReply, OfAReadLetsTheReadBeSentAgain) {
  Client client;
  connect(client);
  during(
      [this] {
        loseReply(wire::save);
        ASSERT_TRUE(server_.accept());
        reply(wire::save, ModelRes_Success, "7");
      },
      [&] { EXPECT_EQ(client.get(client.counter).text, "7"); });
}

TEST_F(LostReply, OfASubscribeLetsItBeSentAgain) {
  Client client;
  connect(client);
  during(
      [this] {
        loseReply(wire::subscribe);
        ASSERT_TRUE(server_.accept());
        reply(wire::subscribe, ModelRes_Success);
      },
      [&] { EXPECT_EQ(client.subscribe(client.counter), ModelRes_Success); });
  endConnection();
}

TEST_F(LostReply, OfALargeStoreThatWasNotWrittenCompletelyIsReported) {
  Client client;
  connect(client);
  constexpr std::size_t moreThanAPipeHolds = 1024UL * 1024;
  during(
      [this] {
        EXPECT_EQ(server_.requests.read(wire::headerSize).size(), wire::headerSize);
        endConnection();
      },
      [&] {
        EXPECT_EQ(client.store(client.text, std::string(moreThanAPipeHolds, 'x')).result,
                  ModelRes_OutcomeUnknown);
      });
}

TEST_F(LostReply, OfAnOlderConnectionLetsAStoreBeSentOnce) {
  Client client;
  connect(client);
  endConnection();
  during(
      [this] {
        ASSERT_TRUE(server_.accept());
        reply(wire::load, ModelRes_Success);
        reply(wire::save, ModelRes_Success, "7");
      },
      [&] {
        EXPECT_EQ(client.store(client.counter, "7").result, ModelRes_Success);
        EXPECT_EQ(client.get(client.counter).text, "7");
      });
}

TEST_F(LostReply, AfterATimeoutTheStoreMayStillBeApplied) {
  const std::string other = port + "_other";
  Peer peer;
  ASSERT_EQ(peer.execute("serve " + other), success());
  Client client;
  ASSERT_EQ(client.connect(other).result, ModelRes_Success);
  peer.suspend();
  EXPECT_EQ(client.store(client.counter, "7").result, ModelRes_Timeout);
  peer.resume();
  ASSERT_TRUE(eventually([&] { return client.get(client.counter).text == "7"; }));
}

TEST_F(LostReply, RefusedUnsubscribeIsReportedAndTheSubscriptionStays) {
  Client client;
  connect(client);
  during([this] { reply(wire::subscribe, ModelRes_Success); },
         [&] { ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success); });
  during([this] { reply(wire::unsubscribe, ModelSrv::ModelRes_LimitReached); },
         [&] {
           EXPECT_EQ(client.counter.unsubscribeToServer(&client.root),
                     ModelSrv::ModelRes_LimitReached);
         });
  ASSERT_TRUE(server_.events.write(
      wire::frame(wire::event, ModelSrv::ModelRoot::EvtTyp_Model_Update, 0,
                  wire::u16(counterId) + wire::u16(0xFFFF) + wire::u16(wire::wholeValue))));
  EXPECT_TRUE(client.pumpUntil([&] { return client.counter.updates() == 1; }));
  during([this] { reply(wire::unsubscribe, ModelRes_Success); },
         [&] { EXPECT_EQ(client.counter.unsubscribeToServer(&client.root), ModelRes_Success); });
  EXPECT_EQ(client.counter.unsubscribeToServer(&client.root), ModelSrv::ModelRes_NotSubscribed);
}

TEST_F(LostReply, UnsubscribeOfWhatTheServerDoesNotHaveEndsTheSubscription) {
  Client client;
  connect(client);
  for (const ModelRes result : {ModelSrv::ModelRes_NotSubscribed, ModelSrv::ModelRes_NoSuchPart}) {
    during([this] { reply(wire::subscribe, ModelRes_Success); },
           [&] { ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success); });
    during([this, result] { reply(wire::unsubscribe, static_cast<std::uint16_t>(result)); },
           [&] { EXPECT_EQ(client.counter.unsubscribeToServer(&client.root), ModelRes_Success); });
    EXPECT_EQ(client.counter.unsubscribeToServer(&client.root), ModelSrv::ModelRes_NotSubscribed);
  }
}

TEST_F(LostReply, OfAnUnsubscribeEndsTheSubscription) {
  Client client;
  connect(client);
  during([this] { reply(wire::subscribe, ModelRes_Success); },
         [&] { ASSERT_EQ(client.subscribe(client.counter), ModelRes_Success); });
  during([this] { loseReply(wire::unsubscribe); },
         [&] { EXPECT_EQ(client.counter.unsubscribeToServer(&client.root), ModelRes_Success); });
  during(
      [this] {
        ASSERT_TRUE(server_.accept());
        reply(wire::save, ModelRes_Success, "7");
      },
      [&] { EXPECT_EQ(client.get(client.counter).text, "7") << "nothing is renewed"; });
}

/// A client whose server ends after a subscription, so that the next one renews it.
class Renewal : public LostReply {
 protected:
  void SetUp() override {
    LostReply::SetUp();
    connect(client_);
    during([this] { reply(wire::subscribe, ModelRes_Success); },
           [&] { ASSERT_EQ(client_.subscribe(client_.counter), ModelRes_Success); });
  }

  /// Makes a request on a new connection, whose server gets what `renewal` expects before it.
  template <typename Renewal>
  void reconnect(Renewal renewal) {
    endConnection();
    during(
        [&] {
          ASSERT_TRUE(server_.accept());
          renewal();
          reply(wire::save, ModelRes_Success, "7");
        },
        [&] { EXPECT_EQ(client_.get(client_.counter).text, "7"); });
  }

  Client client_;
};

TEST_F(Renewal, OfAnAbsentPartIsRequestedAsSuch) {
  reconnect([this] {
    reply(wire::subscribe, ModelSrv::ModelRes_NoSuchPart);
    reply(wire::renew, ModelRes_Success);
  });
  during([this] { reply(wire::unsubscribe, ModelRes_Success); },
         [&] { EXPECT_EQ(client_.counter.unsubscribeToServer(&client_.root), ModelRes_Success); });
}

TEST_F(Renewal, IsOneRequestIfThePartIsThere) {
  reconnect([this] { reply(wire::subscribe, ModelRes_Success); });
}

TEST_F(Renewal, IsTriedAgainOnTheNextConnectionIfTheServerIsOlder) {
  reconnect([this] {
    reply(wire::subscribe, ModelSrv::ModelRes_NoSuchPart);
    reply(wire::renew, wire::badRequest);
  });
  reconnect([this] {
    reply(wire::subscribe, ModelSrv::ModelRes_NoSuchPart);
    reply(wire::renew, ModelRes_Success);
  });
}

TEST_F(Renewal, IsRequestedOnceIfTheServerIsOlder) {
  during([this] { reply(wire::subscribe, ModelRes_Success); },
         [&] { ASSERT_EQ(client_.subscribe(client_.counter), ModelRes_Success); });
  reconnect([this] {
    reply(wire::subscribe, ModelSrv::ModelRes_NoSuchPart);
    reply(wire::subscribe, ModelSrv::ModelRes_NoSuchPart);
    reply(wire::renew, wire::badRequest);
  });
}

}  // namespace
}  // namespace fault
