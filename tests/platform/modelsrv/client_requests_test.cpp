#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using namespace std::string_literals;

class ClientRequests : public ConnectedClient {};

TEST_F(ClientRequests, ReceiveAStartedEventRightAfterConnecting) {
  EXPECT_EQ(client_.manager.receiveEvent(test_support::timeoutMilliseconds),
            EvtSrv::EvtRes_Success);
  EXPECT_EQ(client_.root.types, std::vector<unsigned>{ModelRoot::EvtTyp_Model_Started});
  EXPECT_EQ(client_.root.senders, std::vector<std::string>{name_});
}

TEST_F(ClientRequests, ListTheTree) {
  std::vector<unsigned short> ids;
  std::vector<std::string> names;
  EXPECT_EQ(client_.childIds({}, ids), ModelRes_Success);
  EXPECT_EQ(ids, (std::vector<unsigned short>{1, 2, 3, 4, 5}));
  EXPECT_EQ(client_.childIds(driveChain, ids), ModelRes_Success);
  EXPECT_EQ(ids, (std::vector<unsigned short>{1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14}));
  EXPECT_EQ(client_.childNames(driveChain, names), ModelRes_Success);
  EXPECT_EQ(names, (std::vector<std::string>{"speed", "label", "gains", "raw", "serial", "offset",
                                             "secret", "limited", "", "speed", "inner"}));
  EXPECT_EQ(client_.childIds(speedChain, ids), ModelRes_Success);
  EXPECT_TRUE(ids.empty());
}

TEST_F(ClientRequests, ReadElements) {
  unsigned short sum = 99;
  std::vector<std::string> names;
  EXPECT_EQ(client_.elementSum(gainsChain, sum), ModelRes_Success);
  EXPECT_EQ(sum, 2);
  EXPECT_EQ(client_.elementNames(gainsChain, names), ModelRes_Success);
  EXPECT_EQ(names, (std::vector<std::string>{"p", "i"}));
  EXPECT_EQ(client_.elementSum(speedChain, sum), ModelRes_Success);
  EXPECT_EQ(sum, 0);
}

TEST_F(ClientRequests, ResolveEachLevelExactlyOnce) {
  std::vector<unsigned short> ids;
  std::vector<std::string> names;
  unsigned short sum = 0;
  std::string text;
  const std::function<void()> requests[] = {
      [&] { static_cast<void>(client_.childIds(speedChain, ids)); },
      [&] { static_cast<void>(client_.childNames(speedChain, names)); },
      [&] { static_cast<void>(client_.elementSum(speedChain, sum)); },
      [&] { static_cast<void>(client_.elementNames(speedChain, names)); },
      [&] { static_cast<void>(client_.save(speedChain, text)); },
      [&] { static_cast<void>(client_.load(speedChain, "1")); },
      [&] { static_cast<void>(client_.subscribe(speedChain)); },
      [&] { static_cast<void>(client_.unsubscribe(speedChain)); },
  };
  for (const auto& request : requests) {
    client_.part.idCalls = client_.part.parentCalls = 0;
    request();
    EXPECT_EQ(client_.part.idCalls, 2);
    EXPECT_EQ(client_.part.parentCalls, 2);
  }
}

TEST_F(ClientRequests, ReadAndStoreValues) {
  EXPECT_EQ(client_.text(speedChain), "42");
  EXPECT_EQ(client_.load(speedChain, " -5 "), ModelRes_Success);
  EXPECT_EQ(server_.speed.value(), -5);
  EXPECT_EQ(client_.text(speedChain), "-5");
  EXPECT_EQ(client_.load(labelChain, "3\na\0b"s), ModelRes_Success);
  EXPECT_EQ(client_.text(labelChain), "a\0b"s);
  EXPECT_EQ(client_.text(gainsChain), "1.5\n0.25");
  EXPECT_EQ(client_.text(gainsChain, 1), "0.25");
  EXPECT_EQ(client_.load(gainsChain, "9", false, 1), ModelRes_Success);
  EXPECT_EQ(client_.load(gainsChain, "1\n2\n3"), ModelRes_BadText);
  EXPECT_EQ(client_.text(gainsChain), "1.5\n9");
}

TEST_F(ClientRequests, ReadTextIntoAString) {
  std::string text = "before";
  const auto read = [&](const Chain& chain, ModelPartIndex index) {
    return client_.root.getTextFromServer(&client_.part.at(chain), index, text);
  };
  EXPECT_EQ(read(gainsChain, all), ModelRes_Success);
  EXPECT_EQ(text, "1.5\n0.25");
  EXPECT_EQ(read(gainsChain, 1), ModelRes_Success);
  EXPECT_EQ(text, "0.25");
  EXPECT_EQ(client_.load(labelChain, "3\na\0b"s), ModelRes_Success);
  EXPECT_EQ(read(labelChain, all), ModelRes_Success);
  EXPECT_EQ(text, "a\0b"s);
  EXPECT_EQ(read(gainsChain, 2), ModelRes_NoSuchIndex);
  EXPECT_EQ(read({1}, all), ModelRes_NoValue);
  EXPECT_EQ(read({1, 99}, all), ModelRes_NoSuchPart);
  EXPECT_EQ(client_.root.getTextFromServer(nullptr, all, text), ModelRes_BadArgument);
  EXPECT_EQ(text, "a\0b"s);
}

TEST_F(ClientRequests, ReturnTheErrorOfTheServer) {
  std::string text = "before";
  EXPECT_EQ(client_.load(speedChain, "x"), ModelRes_BadText);
  EXPECT_EQ(client_.load(speedChain, "3000000000"), ModelRes_OutOfRange);
  EXPECT_EQ(client_.load({1, 5}, "x"), ModelRes_ReadOnly);
  EXPECT_EQ(client_.load({1, 6}, "1"), ModelRes_Protected);
  EXPECT_EQ(client_.load({1, 6}, "1", true), ModelRes_Success);
  EXPECT_EQ(client_.load({9}, "1"), ModelRes_NoSuchPart);
  EXPECT_EQ(client_.load({1}, "1"), ModelRes_NoValue);
  EXPECT_EQ(client_.load(gainsChain, "1", false, 2), ModelRes_NoSuchIndex);
  EXPECT_EQ(client_.save({1, 99}, text), ModelRes_NoSuchPart);
  EXPECT_EQ(text, "");
  EXPECT_EQ(client_.subscribe(secretChain), ModelRes_NotSubscribable);
  EXPECT_EQ(client_.unsubscribe(speedChain), ModelRes_NotSubscribed);
  std::vector<unsigned short> ids{7};
  EXPECT_EQ(client_.childIds({9}, ids), ModelRes_NoSuchPart);
  EXPECT_EQ(client_.root.getChildIdsFromServer(nullptr, ids), ModelRes_BadArgument);
  EXPECT_EQ(ids, (std::vector<unsigned short>{7}));
  EXPECT_EQ(client_.part.at(speedChain).subscribeToServer(&client_.root, 5, nullptr, all),
            ModelRes_BadArgument);
  EXPECT_EQ(client_.part.at(speedChain).subscribeToServer(nullptr, 0, nullptr, all),
            ModelRes_BadArgument);
  EXPECT_EQ(client_.text(speedChain), "42");
}

TEST_F(ClientRequests, AreVetoedByTheServersStoreCheck) {
  server_.speed.setStoreCheck([](const std::int32_t& value, ModelPartIndex) {
    return value > 100 ? ModelRes_Vetoed : ModelRes_Success;
  });
  EXPECT_EQ(client_.load(speedChain, "101"), ModelRes_Vetoed);
  EXPECT_EQ(client_.text(speedChain), "42");
  EXPECT_EQ(client_.load(speedChain, "100"), ModelRes_Success);
}

TEST(StoreObserver, SeesEachAcceptedStoreOfAClientBeforeItsReply) {
  const std::string port = test_support::uniquePortName();
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelRoot root(&manager);
  ValuePart<std::int32_t> speed(1, "speed", 42);
  ValuePart<std::int32_t> serial(2, "serial", 1, ModelPartStatus_ReadOnly);
  ASSERT_EQ(root.add(&speed), ModelRes_Success);
  ASSERT_EQ(root.add(&serial), ModelRes_Success);
  std::vector<std::int32_t> seen;
  ServerOptions options;
  options.stored = [&](ModelPart& part) {
    EXPECT_EQ(&part, &speed);
    seen.push_back(speed.value());
  };
  ASSERT_EQ(root.startAsServer(port, options), ModelRes_Success);
  test_support::Pump pump(manager);
  Client client;
  ASSERT_EQ(client.connect(port), ModelRes_Success);
  EXPECT_EQ(client.load({1}, "7"), ModelRes_Success);
  EXPECT_EQ(seen, (std::vector<std::int32_t>{7}));
  EXPECT_EQ(client.load({1}, "7"), ModelRes_Success);
  EXPECT_EQ(seen, (std::vector<std::int32_t>{7, 7})) << "also of the same value";
  EXPECT_EQ(client.load({1}, "x"), ModelRes_BadText);
  EXPECT_EQ(client.load({2}, "7"), ModelRes_ReadOnly);
  EXPECT_EQ(client.text({1}), "7");
  EXPECT_EQ(speed.setValue(8), ModelRes_Success);
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(ClientRequests, RejectAProxyThatIsTooDeep) {
  EXPECT_EQ(client_.text(Chain(ModelDepth_Max, 1)), "?");
  std::string text;
  EXPECT_EQ(client_.save(Chain(ModelDepth_Max, 1), text), ModelRes_NoSuchPart);
  EXPECT_EQ(client_.save(Chain(ModelDepth_Max + 1, 1), text), ModelRes_BadArgument);
}

TEST_F(ClientRequests, CarryATextOfMaximumSizeAndNotOneByteMore) {
  std::string largest(ModelValueText_Max, 'x');
  largest[ModelValueText_Max / 2] = '\n';
  EXPECT_EQ(client_.load(labelChain, largest), ModelRes_Success);
  EXPECT_EQ(client_.load(labelChain, largest + "x"), ModelRes_TooLarge);
  EXPECT_EQ(client_.load(labelChain, largest + std::string(100, 'x')), ModelRes_TooLarge);
  std::string read;
  ASSERT_EQ(client_.save(labelChain, read), ModelRes_Success);
  EXPECT_TRUE(read == largest);
  largest.front() = 'y';
  EXPECT_EQ(client_.load(labelChain, std::to_string(largest.size()) + "\n" + largest),
            ModelRes_Success);
  EXPECT_TRUE(server_.label.value() == largest);
}

TEST_F(ClientRequests, ReachPartsAtTheDepthLimit) {
  std::vector<std::unique_ptr<ModelNode>> nodes;
  ModelNode* parent = &server_.root;
  for (std::size_t level = 0; level + 1 < ModelDepth_Max; ++level) {
    nodes.push_back(std::make_unique<ModelNode>(level == 0 ? 20 : 0));
    ASSERT_EQ(parent->add(nodes.back().get()), ModelRes_Success);
    parent = nodes.back().get();
  }
  ValuePart<std::int32_t> deepest(0, "deepest", 5);
  ASSERT_EQ(parent->add(&deepest), ModelRes_Success);
  Chain chain(ModelDepth_Max, 0);
  chain.front() = 20;
  EXPECT_EQ(client_.text(chain), "5");
  ASSERT_EQ(client_.subscribe(chain), ModelRes_Success);
  ASSERT_EQ(deepest.setValue(6), ModelRes_Success);
  ASSERT_TRUE(client_.pumpUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.root.updates.front().first, chain);
}

TEST_F(ClientRequests, ReturnVeryManyChildren) {
  ModelNode many(20, "many");
  std::vector<std::unique_ptr<ModelPart>> parts;
  for (unsigned id = 0; id < 20000; ++id) {
    parts.push_back(
        std::make_unique<ModelPart>(static_cast<ModelPartId>(id), "part_" + std::to_string(id)));
    ASSERT_EQ(many.add(parts.back().get()), ModelRes_Success);
  }
  ASSERT_EQ(server_.root.add(&many), ModelRes_Success);
  std::vector<std::string> names;
  ASSERT_EQ(client_.childNames({20}, names), ModelRes_Success);
  ASSERT_EQ(names.size(), 20000U);
  EXPECT_EQ(names.back(), "part_19999");
}

TEST(ModelRoot, ReachesAServerInAnotherProcess) {
  const std::string name = test_support::uniquePortName();
  int ready[2];
  int done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
    ModelRoot root(&manager);
    ValuePart<std::int32_t> part(4, "there", 1);
    close(done[1]);
    const bool serves =
        root.add(&part) == ModelRes_Success && root.startAsServer(name) == ModelRes_Success;
    if (!serves || write(ready[1], "r", 1) != 1) {
      _exit(1);
    }
    while (part.value() != 99) {
      static_cast<void>(manager.receiveEvent(-1));
    }
    char byte = 0;
    static_cast<void>(!read(done[0], &byte, 1));
    root.stop(true);
    _exit(0);
  }
  Client client;
  char byte = 0;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(client.connect(name), ModelRes_Success);
  EXPECT_EQ(client.subscribe({4}), ModelRes_Success);
  EXPECT_EQ(client.load({4}, "99"), ModelRes_Success);
  EXPECT_TRUE(client.pumpUntil([&] { return !client.part.updates.empty(); }));
  for (const int end : {ready[0], ready[1], done[0], done[1]}) {
    close(end);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  std::string text;
  EXPECT_EQ(client.save({4}, text), ModelRes_NotConnected);
}

TEST(ModelRoot, ReturnsWhyItCannotStart) {
  const std::string name = test_support::uniquePortName();
  Client client;
  EXPECT_EQ(client.connect(name), ModelRes_NotConnected);
  EXPECT_STREQ(describe(ModelRes_NotConnected),
               "no server serves that name, or there is no connection");
  EXPECT_EQ(client.connect(""), ModelRes_BadName);
  EXPECT_EQ(client.connect("a/b"), ModelRes_BadName);
  EXPECT_EQ(client.root.startAsClient(name, 100, EvtSrv::ConBehave_Void), ModelRes_BadArgument);
  std::string text;
  EXPECT_EQ(client.save({1}, text), ModelRes_NotConnected);
  EXPECT_EQ(client.subscribe({1}), ModelRes_NotConnected);
  EXPECT_EQ(client.root.startAsServer(name), ModelRes_Busy);

  Server server(name);
  EXPECT_EQ(server.root.startAsServer(name), ModelRes_Busy);
  EXPECT_EQ(server.root.startAsClient(name, ModelRoot::CachePeriod_Stop, 0), ModelRes_Busy);
  ModelRoot second(&client.manager);
  EXPECT_EQ(second.startAsServer(name), ModelRes_NameInUse);
  EXPECT_EQ(second.startAsServer(".hidden"), ModelRes_BadName);
  EXPECT_EQ(client.connect(name), ModelRes_Success);
}

TEST(ModelRoot, ServesAgainAfterAStop) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  server.root.stop(true);
  EXPECT_EQ(server.root.finishActiveTerm(test_support::timeoutMilliseconds),
            EvtSrv::EvtRes_Success);
  EXPECT_EQ(client.text(speedChain), "?");
  EXPECT_EQ(server.root.startAsServer(name), ModelRes_Success);
  EXPECT_EQ(client.text(speedChain), "42");
}

TEST(ModelRoot, SendsPendingUpdatesAndTheStoppedEventInAGracefulShutdown) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  ASSERT_EQ(server.speed.setValue(1), ModelRes_Success);
  server.root.stop(false);
  EXPECT_EQ(server.root.finishActiveTerm(test_support::timeoutMilliseconds),
            EvtSrv::EvtRes_Success);
  const auto stopped = [&] {
    return !client.root.types.empty() &&
           client.root.types.back() == ModelRoot::EvtTyp_Model_Stopped;
  };
  EXPECT_TRUE(client.pumpUntil(stopped));
  EXPECT_EQ(client.root.types,
            (std::vector<unsigned>{ModelRoot::EvtTyp_Model_Started, ModelRoot::EvtTyp_Model_Update,
                                   ModelRoot::EvtTyp_Model_Stopped}));
  EXPECT_EQ(server.root.startAsServer(name), ModelRes_Success);
}

TEST(ModelRoot, HasNoConnectionAfterAStop) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  ASSERT_EQ(client.subscribe(speedChain), ModelRes_Success);
  client.root.stop(true);
  EXPECT_EQ(client.text(speedChain), "?");
  EXPECT_EQ(client.unsubscribe(speedChain), ModelRes_NotSubscribed);
  EXPECT_EQ(client.connect(name), ModelRes_Success);
  EXPECT_EQ(client.text(speedChain), "42");
}

TEST(ModelRoot, MayStopFromItsOwnStoreCheck) {
  const std::string name = test_support::uniquePortName();
  Server server(name);
  server.speed.setStoreCheck([&](const std::int32_t&, ModelPartIndex) {
    server.root.stop(true);
    return ModelRes_Success;
  });
  Client client;
  ASSERT_EQ(client.connect(name), ModelRes_Success);
  EXPECT_EQ(client.load(speedChain, "1"), ModelRes_OutcomeUnknown);
  EXPECT_EQ(server.speed.value(), 1);
}

}  // namespace
