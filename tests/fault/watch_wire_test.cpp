#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "modelsrv/watch.h"
#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"
#include "tests/platform/modelsrv/watch_log.h"

// A client with watches at a server that does not know them, or sends events that are none.

namespace fault {
namespace {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::Watch;
using ModelSrv::WatchOptions;
using modelsrv_tests::WatchLog;
using testing::ElementsAre;
using wire::chain;
using wire::Order;
using wire::u16;
using wire::u32;
using wire::wholeValue;
using Chain = std::vector<ModelSrv::ModelPartId>;

constexpr std::uint16_t watchOperation = 12;
constexpr std::uint16_t unwatchOperation = 13;
constexpr std::uint16_t valueEvent = 4;
constexpr std::uint16_t structureEvent = 5;

/// A server without the library whose tree is the counter, with the value 7. A store ends the
/// connection; it accepts the next one, and does not know watches then.
class WatchedRawServer : public FaultTest {
 protected:
  ~WatchedRawServer() override {
    client_.reset();
    if (serving_.joinable()) {
      serving_.join();
    }
  }

  void connect(bool knowsWatches, bool reconnects = false) {
    knowsWatches_ = knowsWatches;
    serving_ = std::thread([this, reconnects] {
      for (int connections = reconnects ? 2 : 1; connections > 0; --connections) {
        EXPECT_TRUE(server_.accept());
        serve();
        knowsWatches_ = false;
      }
    });
    client_ = std::make_unique<Client>(reconnects);
    ASSERT_EQ(client_->connect(port).result, ModelRes_Success);
  }

  void start(Watch& watch, WatchLog& log) {
    ASSERT_EQ(watch.start(client_->root, Chain{counterId}, {}, log.callback()), ModelRes_Success);
  }

  void send(std::uint16_t type, const std::string& payload, Order order = Order::leastFirst) {
    ASSERT_TRUE(
        server_.events.write(wire::frame(wire::event, type, 0, payload, std::nullopt, order)));
  }

  /// Dispatches until the last of `log` is `line`.
  void await(const WatchLog& log, const std::string& line) {
    EXPECT_TRUE(client_->pumpUntil([&] { return !log.lines.empty() && log.lines.back() == line; }));
  }

  std::unique_ptr<Client> client_;
  std::atomic<unsigned> watchRequests_{0};
  std::atomic<unsigned> unwatchRequests_{0};

 private:
  void serve() {
    while (const auto request = server_.readRequest()) {
      if (request->code == wire::load) {
        server_.requests.close();
        server_.replies.close();
        server_.events.close();
        return;
      }
      const auto [code, payload] = replyTo(*request);
      EXPECT_TRUE(
          server_.replies.write(wire::frame(wire::reply, code, request->sequence, payload)));
    }
  }

  std::pair<std::uint16_t, std::string> replyTo(const wire::Frame& request) {
    const bool isRoot = request.payload.starts_with(u16(0));
    const std::string name = "counter";
    switch (request.code) {
      case wire::childIds:
        return {0, isRoot ? u16(1) + u16(counterId) : u16(0)};
      case wire::childNames:
        return {0, isRoot ? u16(1) + u16(7) + name : u16(0)};
      case wire::elementSum:
      case wire::elementNames:
        return {0, u16(0)};
      case wire::save:
        return isRoot ? std::pair(std::uint16_t{ModelSrv::ModelRes_NoValue}, std::string())
                      : std::pair(std::uint16_t{0}, std::string("7"));
      case watchOperation:
        ++watchRequests_;
        return {knowsWatches_ ? std::uint16_t{0} : wire::badRequest, ""};
      case unwatchOperation:
        ++unwatchRequests_;
        return {knowsWatches_ ? std::uint16_t{0} : wire::badRequest, ""};
      default:
        return {wire::badRequest, ""};
    }
  }

 protected:
  RawServer server_{mailbox};

 private:
  std::atomic<bool> knowsWatches_{true};
  std::thread serving_;
};

using OlderServer = WatchedRawServer;

TEST_F(OlderServer, GivesNoWatches) {
  connect(false);
  Watch watch;
  WatchLog log;
  WatchOptions subtree;
  subtree.subtree = true;
  EXPECT_EQ(watch.start(client_->root, Chain{counterId}, {}, log.callback()),
            ModelSrv::ModelRes_NotSupported);
  EXPECT_EQ(watch.start(client_->root, Chain{}, subtree, log.callback()),
            ModelSrv::ModelRes_NotSupported);
  EXPECT_FALSE(watch.isActive());
  EXPECT_EQ(watch.stop(), ModelSrv::ModelRes_NotSubscribed);
  EXPECT_EQ(client_->get(client_->counter).text, "7");
}

TEST_F(OlderServer, GivesATreePartByPart) {
  connect(false);
  std::string parts;
  EXPECT_EQ(client_->root.readTree(&client_->root,
                                   [&](const ModelSrv::TreePart& part) {
                                     parts += std::string(part.name) + (part.isNode ? "/" : "=") +
                                              std::string(part.text) + " ";
                                     return true;
                                   }),
            ModelRes_Success);
  EXPECT_EQ(parts, "/ counter=7 ");
}

TEST_F(OlderServer, LeavesAWatchToTheNextConnection) {
  connect(true, true);
  Watch watch;
  WatchLog log;
  start(watch, log);
  EXPECT_EQ(client_->store(client_->counter, "8").result, ModelSrv::ModelRes_OutcomeUnknown);
  EXPECT_TRUE(client_->pumpUntil([&] { return watchRequests_ == 2; }));
  EXPECT_EQ(client_->get(client_->counter).text, "7");
  EXPECT_TRUE(watch.isActive());
  EXPECT_EQ(watch.stop(), ModelRes_Success);
  EXPECT_EQ(unwatchRequests_, 0U) << "the server does not have it";
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

// Events. The first watch of a client has the number 1.

std::string mark(std::uint16_t kind, std::uint32_t number = 1) {
  return u32(number) + u16(kind);
}

std::string value(const std::string& target, const std::string& text, std::uint16_t index,
                  std::uint32_t number = 1) {
  return u32(number) + u32(2) + u32(0) + u32(5) + u16(index) + u16(0) + target + text;
}

std::string added(const std::string& target, std::uint16_t isNode, std::uint16_t index) {
  return mark(3) + u16(isNode) + u32(0) + u32(5) + u16(index) + u16(0) + target + u16(7) +
         "counter" + "42";
}

struct RawEvent {
  std::uint16_t type;
  std::string payload;
};

/// Every event that is cut off where that is not in its last field.
std::vector<RawEvent> truncatedEvents() {
  const std::string counter = chain({counterId});
  const struct {
    RawEvent event;
    std::size_t textBytes;
  } whole[] = {{{valueEvent, value(counter, "42", wholeValue)}, 2},
               {{structureEvent, added(counter, 0, wholeValue)}, 2},
               {{structureEvent, mark(4) + counter}, 0},
               {{structureEvent, mark(1)}, 0},
               {{structureEvent, mark(2)}, 0}};
  std::vector<RawEvent> events;
  for (const auto& [event, textBytes] : whole) {
    for (std::size_t size = 0; size < event.payload.size() - textBytes; ++size) {
      events.push_back({event.type, event.payload.substr(0, size)});
    }
  }
  return events;
}

std::vector<RawEvent> malformedEvents() {
  const std::string counter = chain({counterId});
  const std::string tooDeep = u16(4097) + std::string(2 * 4097, '\0');
  return {{structureEvent, mark(0)},
          {structureEvent, mark(5)},
          {structureEvent, mark(65535) + counter},
          {structureEvent, mark(1) + "x"},
          {structureEvent, mark(2) + "x"},
          {structureEvent, mark(4) + counter + "x"},
          {structureEvent, mark(4) + tooDeep},
          {structureEvent, mark(4) + u16(65535) + u16(1)},
          {structureEvent, added(tooDeep, 0, wholeValue)},
          {structureEvent, added(counter, 2, wholeValue)},
          {structureEvent, added(counter, 0, 65535)},
          {structureEvent, mark(1, 2)},
          {structureEvent, mark(1, 0)},
          {valueEvent, value(tooDeep, "42", wholeValue)},
          {valueEvent, value(counter, "42", 65535)},
          {valueEvent, value(counter, "42", wholeValue, 0xFFFFFFFF)}};
}

class WatchEvents : public WatchedRawServer {
 protected:
  void sendAll(const std::vector<RawEvent>& events) {
    for (const RawEvent& event : events) {
      send(event.type, event.payload);
    }
  }
};

TEST_F(WatchEvents, ThatAreTruncatedAreDropped) {
  connect(true);
  Watch watch;
  WatchLog log;
  start(watch, log);
  sendAll(truncatedEvents());
  send(structureEvent, mark(2));
  await(log, "complete");
  EXPECT_THAT(log.lines, ElementsAre("complete"));
  EXPECT_EQ(client_->get(client_->counter).text, "7") << "the connection stays";
}

TEST_F(WatchEvents, ThatAreMalformedOrOfNoWatchAreDropped) {
  connect(true);
  Watch watch;
  WatchLog log;
  start(watch, log);
  sendAll(malformedEvents());
  send(structureEvent, mark(2));
  await(log, "complete");
  EXPECT_THAT(log.lines, ElementsAre("complete"));
  EXPECT_EQ(client_->get(client_->counter).text, "7") << "the connection stays";
}

TEST_F(WatchEvents, OfAClientWithoutWatchesAreDropped) {
  connect(true);
  sendAll(truncatedEvents());
  sendAll(malformedEvents());
  sendAll({{valueEvent, value(chain({counterId}), "42", wholeValue)},
           {structureEvent, added(chain({counterId}), 0, wholeValue)},
           {structureEvent, mark(1)}});
  Watch watch;
  WatchLog log;
  // They are dispatched after this, and have the numbers 1 and 2.
  for (int number = 1; number <= 3; ++number) {
    start(watch, log);
  }
  send(structureEvent, mark(2, 3));
  await(log, "complete");
  EXPECT_THAT(log.lines, ElementsAre("complete"));
}

TEST_F(WatchEvents, AreTakenInAnyOrderOfBytesAndOfEvents) {
  connect(true);
  Watch watch;
  WatchLog log;
  start(watch, log);
  send(valueEvent, value(chain({counterId}), "42", wholeValue));
  send(structureEvent, mark(4) + chain({9}));
  const Order most = Order::mostFirst;
  send(valueEvent,
       u32(1, most) + u32(3, most) + u32(0, most) + u32(5, most) + u16(0, most) + u16(0, most) +
           chain({counterId}, most) + "43",
       most);
  await(log, "value 1[0] 43 x3");
  EXPECT_THAT(log.lines, ElementsAre("value 1 42 x2", "removed 9", "value 1[0] 43 x3"));
}

}  // namespace
}  // namespace fault
