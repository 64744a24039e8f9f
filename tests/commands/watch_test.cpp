#include <atomic>
#include <new>

#include "tests/commands/scope_fixture.h"
#include "tests/support/process.h"

namespace treescope::test {
namespace {

class Watch : public ScopeFixture {
 protected:
  void SetUp() override { connect(); }

  [[nodiscard]] std::string subscribed() { return run("eu -l").output; }
};

TEST_F(Watch, SubscribesThePartThatAPathNames) {
  struct Case {
    std::string command;
    int result;
    std::string message;
    std::string subscribed;
  };
  const std::string notFound = "ERROR: NotFound\n";
  const std::string noConnection = "ERROR: ConnectError\n";
  const std::string refused = "ERROR: UnknownError\n";
  const Case cases[] = {
      {"eu drive/speed", 1, "", "/drive/speed\n"},
      {"cat drive/speed", 1, "", "/drive/speed\n"},
      {"eu ~drive/speed", 1, "", "/drive/speed\n"},
      {"eu -m drive/gains", 1, "", "/drive/gains\n"},
      {"eu /noname-3/x", 1, "", "/noname-3/x\n"},
      {"eu /drive/noname-12", 1, "", "/drive/noname-12\n"},
      {"eu drive/speed/", 1, "", "/drive/speed\n"},
      {"eu drive/speed/whatever", 1, "", "/drive/speed\n"},
      {"eu -r drive/speed", 1, "", "/drive/speed\n"},
      {"eu drive/gains[1]", 4, notFound, ""},
      {"eu drive/secret", 2, refused, ""},
      {"eu drive", 3, "", ""},
      {"eu drive/", 3, "", ""},
      {"eu", 3, "", ""},
      {"eu /", 3, "", ""},
      {"eu drive/nothing", 4, notFound, ""},
      {"eu -r drive/nothing", 4, notFound, ""},
      {"eu nothing/speed", 7, noConnection, ""},
      {"eu ../drive", 7, noConnection, ""},
      {"eu -r /drive/inner", 1, "", "/drive/inner/deep\n"},
      {"eu -r /drive/inner/", 1, "", "/drive/inner/deep\n"},
      {"eu -r noname-3", 1, "", "/noname-3/x\n"},
      {"eu -c drive/speed", 5, "ERROR: OptionError\n", ""},
      {"cat -r drive", 5, "ERROR: OptionError\n", ""},
      {"eu a b", 5, "ERROR: OptionError\n", ""},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(run(test.command), (CommandResult{test.result, test.message})) << test.command;
    EXPECT_EQ(subscribed(), test.subscribed) << test.command;
    ASSERT_EQ(run("du"), (CommandResult{1, ""}));
    EXPECT_EQ(subscribed(), "") << test.command;
  }
}

TEST_F(Watch, SubscribesTheCurrentPart) {
  ASSERT_EQ(run("cd drive/gains").result, 1);
  for (const char* command : {"eu", "eu whatever", "eu -r", "eu \"\""}) {
    EXPECT_EQ(run(command), (CommandResult{1, ""})) << command;
    EXPECT_EQ(subscribed(), "/drive/gains\n") << command;
    ASSERT_EQ(run("du").result, 1);
  }
}

TEST_F(Watch, SubscribesASubtreeInTheServersOrder) {
  const std::string below =
      "/drive/speed\n/drive/label\n/drive/gains\n/drive/raw\n/drive/serial\n/drive/offset\n"
      "/drive/limited\n/drive/noname-12\n/drive/speed\n/drive/inner/deep\n";
  EXPECT_EQ(run("eu -r drive"), (CommandResult{1, ""}));
  EXPECT_EQ(subscribed(), below);
  // The second "speed" has no path of its own, so the first is subscribed twice.
  EXPECT_EQ(scope_.currentPart()->subscriptions().front(), (IdChain{1, 1}));
  ASSERT_EQ(run("du").result, 1);
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(run("eu -r"), (CommandResult{1, ""}));
  EXPECT_EQ(subscribed(), below);
  ASSERT_EQ(run("du").result, 1);
  EXPECT_EQ(run("eu -r /"), (CommandResult{1, ""}));
  EXPECT_EQ(subscribed(), below + "/empty\n/noname-3/x\n/" + SampleServer::oddName() + "\n/top\n");
}

TEST_F(Watch, SubscribesBelowTheRootWhatBeginsWithATilde) {
  ModelSrv::ModelNode node(40, "~");
  ModelSrv::ValuePart<bool> part(1, "~part");
  ModelSrv::ValuePart<bool> named(41, "~top");
  ASSERT_EQ(node.add(&part), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&node), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&named), ModelSrv::ModelRes_Success);
  const std::string ending = "/drive/inner/deep\n/drive/~/~part\n/drive/~top\n";
  for (const char* command : {"eu -r", "eu -r ~drive", "eu -r /drive"}) {
    ASSERT_EQ(run(std::string("cd ") + (command[5] == '\0' ? "/drive" : "/")).result, 1);
    EXPECT_EQ(run(command), (CommandResult{1, ""})) << command;
    EXPECT_TRUE(subscribed().ends_with(ending)) << command << '\n' << subscribed();
    ASSERT_EQ(run("du").result, 1);
  }
}

TEST_F(Watch, ReturnsTheResultOfTheLastPartOfASubtree) {
  ModelSrv::ModelNode last(40, "last");
  ModelSrv::ValuePart<bool> open(1, "open");
  ModelSrv::ValuePart<bool> closed(2, "closed");
  closed.setSubscribable(false);
  ASSERT_EQ(last.add(&open), ModelSrv::ModelRes_Success);
  ASSERT_EQ(last.add(&closed), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&last), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("eu -r drive"), (CommandResult{2, "ERROR: UnknownError\n"}));
  EXPECT_TRUE(subscribed().ends_with("/drive/inner/deep\n/drive/last/open\n"));
}

TEST_F(Watch, CallsTheHandlerForEveryChild) {
  struct Recorder : TreeScope {
    using TreeScope::TreeScope;
    int doEu(unsigned options, const char* path) override {
      calls += std::to_string(options) + (path == nullptr ? "(null)" : path) + '\n';
      return TreeScope::doEu(options, path);
    }
    std::string calls;
  };
  Recorder recorder(&manager_, 1);
  ASSERT_EQ(recorder.dispatch(("cd " + name_).c_str()), 1);
  ASSERT_EQ(recorder.dispatch("eu -rm noname-3"), 1);
  EXPECT_EQ(recorder.calls, "3noname-3\n3noname-3/x\n");
  recorder.calls.clear();
  ASSERT_EQ(recorder.dispatch("cd drive/inner"), 1);
  ASSERT_EQ(recorder.dispatch("eu -r"), 1);
  EXPECT_EQ(recorder.calls, "1(null)\n1deep\n");
}

TEST_F(Watch, SubscribesAfterASubtreeRanOutOfMemory) {
  struct StarvedScope : TreeScope {
    using TreeScope::TreeScope;
    int doEu(unsigned options, const char* path) override {
      if (calls++ == 1) {
        throw std::bad_alloc();
      }
      return TreeScope::doEu(options, path);
    }
    int calls = 0;
  };
  StarvedScope starved(&manager_, 1);
  test_support::CapturedOutput captured;
  ASSERT_EQ(starved.dispatch(("cd " + name_).c_str()), 1);
  EXPECT_EQ(starved.dispatch("eu -r noname-3"), 8);
  EXPECT_EQ(starved.dispatch("eu -r noname-3"), 1);
  EXPECT_EQ(starved.dispatch("eu -l"), 1);
  EXPECT_EQ(captured.take(), "ERROR: OutOfMemory\n/noname-3/x\n");
}

/// A node that has no children any more after a number of requests.
class VanishingNode : public ModelSrv::ModelNode {
 public:
  using ModelNode::ModelNode;

  void vanishAfter(int requests) { requestsLeft_ = requests; }

 protected:
  ModelNode* asNode() override { return requestsLeft_-- > 0 ? ModelNode::asNode() : nullptr; }

 private:
  std::atomic<int> requestsLeft_{1000};
};

TEST_F(Watch, ReturnsNothingForASubtreeWithoutChildren) {
  VanishingNode vanishing(41, "vanishing");
  ModelSrv::ValuePart<bool> child(1, "child");
  ASSERT_EQ(vanishing.add(&child), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&vanishing), ModelSrv::ModelRes_Success);
  vanishing.vanishAfter(1);
  EXPECT_EQ(run("eu -r drive/vanishing"), (CommandResult{3, ""}));
  vanishing.vanishAfter(1000);
  EXPECT_EQ(subscribed(), "");
}

TEST_F(Watch, ReturnsNothingForTheSubtreeOfARootWithoutChildren) {
  const std::string name = test_support::uniquePortName("empty");
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Void, false);
  ModelSrv::ModelRoot root(&manager);
  ASSERT_EQ(root.startAsServer(name), ModelSrv::ModelRes_Success);
  const test_support::Pump pump(manager);
  ASSERT_EQ(run("cd").result, 1);
  ASSERT_EQ(run("cd " + name).result, 1);
  for (const char* command : {"eu -r", "eu -r /", "eu -r ~"}) {
    EXPECT_EQ(run(command), (CommandResult{3, ""})) << command;
  }
  EXPECT_EQ(subscribed(), "");
}

TEST_F(Watch, DoesNotFollowNamesThatLeadOutOfTheSubtree) {
  ModelSrv::ModelNode up(41, "..");
  ModelSrv::ModelNode again(14, "drive");
  ASSERT_EQ(up.add(&again), ModelSrv::ModelRes_Success);
  ModelSrv::ValuePart<bool> child(1, "child");
  ASSERT_EQ(again.add(&child), ModelSrv::ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&up), ModelSrv::ModelRes_Success);
  EXPECT_EQ(run("eu -r drive"), (CommandResult{3, ""}));
}

TEST_F(Watch, ListsAllSubscriptionsForAnyPath) {
  EXPECT_EQ(run("eu -l"), (CommandResult{1, ""}));
  EXPECT_EQ(run("cat -l nothing/at/all"), (CommandResult{1, ""}));
  ASSERT_EQ(run("eu top").result, 1);
  ASSERT_EQ(run("eu drive/speed").result, 1);
  ASSERT_EQ(run("eu top").result, 1);
  for (const char* command : {"eu -l", "eu -lmr x", "cat -l"}) {
    EXPECT_EQ(run(command), (CommandResult{1, "/top\n/drive/speed\n/top\n"})) << command;
  }
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  scope_.currentPart()->addSubscription({});
  EXPECT_TRUE(subscribed().ends_with("/top\n/\n"));
}

TEST_F(Watch, CancelsSubscriptionsAboveAndBelowAPath) {
  struct Case {
    std::string command;
    std::string left;
  };
  const std::string all = "/drive/speed\n/drive/inner/deep\n/top\n/drive/speed\n";
  const Case cases[] = {
      {"du", ""},
      {"du -r", ""},
      {"du \"\"", ""},
      {"du drive", "/top\n"},
      {"du -r drive", "/top\n"},
      {"du drive/inner", "/drive/speed\n/top\n/drive/speed\n"},
      {"du drive/inner/deep/er", "/drive/speed\n/top\n/drive/speed\n"},
      {"du drive/speed", "/drive/inner/deep\n/top\n"},
      {"du drive/../top", "/drive/speed\n/drive/inner/deep\n/drive/speed\n"},
      {"du driv", all},
      {"du drive/noname-1", all},
      {"du nothing", all},
      {"du ..", all},
      {"du /", all},
      {"du ~", all},
      {"du drive//inner", all},
      {"du /drive", all},
      {"du /" + name_ + "/drive", "/top\n"},
      {"du ~" + name_, ""},
  };
  for (const Case& test : cases) {
    ASSERT_EQ(run("du").result, 1);
    for (const IdChain& chain : {IdChain{1, 1}, IdChain{1, 14, 1}, IdChain{5}, IdChain{1, 1}}) {
      ASSERT_EQ(scope_.subscribePath(chain), 1);
    }
    ASSERT_EQ(subscribed(), all);
    EXPECT_EQ(run(test.command), (CommandResult{1, ""})) << test.command;
    EXPECT_EQ(subscribed(), test.left) << test.command;
  }
  EXPECT_EQ(run("du -l"), (CommandResult{5, "ERROR: OptionError\n"}));
}

TEST_F(Watch, CancelsSubscriptionsBelowTheCurrentDirectory) {
  ASSERT_EQ(run("eu drive/speed").result, 1);
  ASSERT_EQ(run("eu top").result, 1);
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(run("du"), (CommandResult{1, ""}));
  EXPECT_EQ(subscribed(), "/top\n");
  EXPECT_EQ(run("q"), (CommandResult{11, ""}));
  EXPECT_EQ(subscribed(), "/top\n");
}

TEST_F(Watch, CancelsSubscriptionsBelowTheCurrentDirectoryAtExit) {
  ASSERT_EQ(run("eu drive/speed").result, 1);
  ASSERT_EQ(run("eu drive/inner/deep").result, 1);
  ASSERT_EQ(run("eu top").result, 1);
  ASSERT_EQ(run("cd drive").result, 1);
  EXPECT_EQ(run("q"), (CommandResult{11, ""}));
  EXPECT_EQ(subscribed(), "/top\n");
}

TEST_F(Watch, ContinuesAfterASubscriptionThatCannotBeCancelled) {
  ASSERT_EQ(run("eu top").result, 1);
  {
    // The library does not know this subscription.
    const KSTD::KThreadMutexLock held(manager_.clientMutex);
    scope_.currentPart()->addSubscription({1, 2});
  }
  ASSERT_EQ(run("eu drive/speed").result, 1);
  EXPECT_EQ(run("du"), (CommandResult{1, ""}));
  EXPECT_EQ(subscribed(), "/drive/label\n");
}

TEST_F(Watch, RequiresAConnection) {
  ASSERT_EQ(run("cd").result, 1);
  EXPECT_EQ(run("eu"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("eu -l"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("cat x"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("du"), (CommandResult{3, ""}));
}

TEST_F(Watch, ReportsAnErrorAfterTheServerHasStopped) {
  ASSERT_EQ(run("eu top").result, 1);
  server_.end();
  EXPECT_EQ(run("eu drive/speed"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("eu -r"), (CommandResult{7, "ERROR: ConnectError\n"}));
  EXPECT_EQ(run("du"), (CommandResult{1, ""}));
}

TEST_F(Watch, SubscribesADeepTree) {
  // A sanitized build takes several times as long.
  constexpr int levels = test_support::sanitized ? 500 : 2000;
  std::vector<std::unique_ptr<ModelSrv::ModelNode>> nodes;
  ModelSrv::ModelNode* above = &server_.drive;
  for (int level = 0; level < levels; ++level) {
    nodes.push_back(std::make_unique<ModelSrv::ModelNode>(ModelSrv::ModelPartId{90}, "d"));
    ASSERT_EQ(above->add(nodes.back().get()), ModelSrv::ModelRes_Success);
    above = nodes.back().get();
  }
  EXPECT_EQ(run("eu -r drive/d"), (CommandResult{1, ""}));
  ASSERT_EQ(scope_.currentPart()->subscriptions().size(), 1U);
  EXPECT_EQ(scope_.currentPart()->subscriptions().front().size(), levels + 1U);
  ASSERT_EQ(run("du").result, 1);
  while (!nodes.empty()) {
    nodes.pop_back();
  }
}

}  // namespace
}  // namespace treescope::test
