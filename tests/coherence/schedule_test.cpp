#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/coherence/model_client.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/programs.h"

// Two clients and a server in another process, which change the tree, ask about it,
// die and come back in a random order, one step after the other: so there is one
// right answer to each question.

namespace {

using namespace ModelSrv;
using namespace coherence;

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define COHERENCE_SANITIZED
#endif
#endif

/// The sanitized builds take several times as long a step.
#ifdef COHERENCE_SANITIZED
constexpr int steps = 1000;
#else
constexpr int steps = 3000;
#endif

class Schedule {
 public:
  explicit Schedule(unsigned seed) : random_(seed) {
    start();
    for (ModelClient& client : clients_) {
      EXPECT_EQ(client.connect(port_), ModelRes_Success);
    }
  }

  ~Schedule() {
    // It takes its mailbox away.
    EXPECT_EQ(server_->finish(), test_support::ExitStatus{});
  }
  Schedule(const Schedule&) = delete;
  Schedule& operator=(const Schedule&) = delete;

  void step() {
    const unsigned kind = below(1000);
    if (kind < 360) {
      askAnything();
    } else if (kind < 400) {
      changeAndAskForShape();
    } else if (kind < 600) {
      walk();
    } else if (kind < 760) {
      changeAtServer(anyPart());
    } else if (kind < 900) {
      storeByClient();
    } else if (kind < 940) {
      addPart();
    } else if (kind < 980) {
      removePart();
    } else if (kind < 995) {
      killAndRestart();
    } else if (stops_ > 0) {
      askWhileStopped();
    }
  }

 private:
  unsigned below(unsigned limit) {
    return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_);
  }
  ModelClient& anyClient() { return clients_[below(2)]; }
  std::string anyText() { return "t" + std::to_string(below(1'000'000)); }

  std::vector<std::string> anyTexts() {
    std::vector<std::string> texts(1 + below(4));
    for (std::string& text : texts) {
      text = anyText();
    }
    return texts;
  }

  /// More often than not one that was asked about lately, and may be held.
  Chain anyPart() {
    if (!recent_.empty() && below(10) < 7) {
      Chain chain = recent_[below(static_cast<unsigned>(recent_.size()))];
      if (!chain.empty() && below(3) == 0) {
        chain.pop_back();
      }
      if (tree_.contains(chain)) {
        return chain;
      }
    }
    auto at = tree_.parts().begin();
    std::advance(at, below(static_cast<unsigned>(tree_.parts().size())));
    // What is hidden is not there for anybody.
    Chain chain = at->first;
    while (!tree_.contains(chain)) {
      chain.pop_back();
    }
    return chain;
  }

  /// One of a class of the program's own that is no node; the root where there is none.
  Chain anyOwnPart() {
    std::vector<Chain> own;
    for (const auto& [chain, part] : tree_.parts()) {
      if (part.madeBy != PartClass::library && !part.isNode && tree_.contains(chain)) {
        own.push_back(chain);
      }
    }
    return own.empty() ? Chain{} : own[below(static_cast<unsigned>(own.size()))];
  }

  void start() {
    server_ = std::make_unique<test_support::Process>(std::vector<std::string>{
        test_support::buildDirectory() + "/tests/coherence_server", port_});
    ASSERT_TRUE(server_->waitForLine("ready"));
    tree_ = TreeModel::initial();
  }

  void tellServer(const std::string& line) {
    ASSERT_TRUE(server_->write(line + '\n'));
    ASSERT_TRUE(server_->waitForLine("ok")) << line;
  }

  void askAnything() {
    // What was there lately may have been removed or hidden since.
    Chain chain = !recent_.empty() && below(4) == 0
                      ? recent_[below(static_cast<unsigned>(recent_.size()))]
                      : anyPart();
    if (below(10) == 0) {
      chain.push_back(static_cast<ModelPartId>(60'000 + below(3)));
    }
    ask(anyClient(), chain, below(6));
  }

  /// Asks all there is to know, in the order of a listing, below some node.
  void walk() {
    ModelClient& client = anyClient();
    const Chain top = anyPart();
    recent_.clear();
    unsigned left = below(60);
    walkBelow(client, top, left);
  }

  void walkBelow(ModelClient& client, const Chain& chain, unsigned& left) {
    recent_.push_back(chain);
    for (unsigned question = 0; question < 6; ++question) {
      ask(client, chain, question);
    }
    for (const ModelPartId id : tree_.children(chain)) {
      if (left == 0) {
        return;
      }
      --left;
      Chain child = chain;
      child.push_back(id);
      walkBelow(client, child, left);
    }
  }

  void askBoth(const Chain& chain, unsigned question) {
    for (ModelClient& client : clients_) {
      ask(client, chain, question);
    }
  }

  void ask(ModelClient& client, const Chain& chain, unsigned question) {
    SCOPED_TRACE(textOf(chain) + " question " + std::to_string(question));
    if (!tree_.contains(chain)) {
      askAboutNothing(client, chain);
      return;
    }
    const PartModel& part = tree_.at(chain);
    switch (question) {
      case 0:
        return expectIds(client, chain);
      case 1:
        return expectNames(client, chain);
      case 2: {
        unsigned short sum = 99;
        ASSERT_EQ(client.elementSum(chain, sum), ModelRes_Success);
        EXPECT_EQ(sum, part.isArray ? part.values.size() : 0);
        return;
      }
      case 3: {
        std::vector<std::string> names;
        ASSERT_EQ(client.elementNames(chain, names), ModelRes_Success);
        EXPECT_EQ(names, part.elementNames);
        return;
      }
      case 4:
        return expectValue(client, chain, part);
      default:
        return expectElement(client, chain, part);
    }
  }

  static void askAboutNothing(ModelClient& client, const Chain& chain) {
    std::vector<unsigned short> ids;
    EXPECT_EQ(client.childIds(chain, ids), ModelRes_NoSuchPart);
    std::string text;
    EXPECT_EQ(client.value(chain, text), ModelRes_NoSuchPart);
  }

  void expectIds(ModelClient& client, const Chain& chain) {
    std::vector<unsigned short> ids;
    ASSERT_EQ(client.childIds(chain, ids), ModelRes_Success);
    EXPECT_EQ(ids, tree_.children(chain));
  }

  void expectNames(ModelClient& client, const Chain& chain) {
    std::vector<std::string> names;
    ASSERT_EQ(client.childNames(chain, names), ModelRes_Success);
    std::vector<std::string> expected;
    for (const ModelPartId id : tree_.children(chain)) {
      Chain child = chain;
      child.push_back(id);
      expected.push_back(tree_.at(child).name);
    }
    EXPECT_EQ(names, expected);
  }

  static void expectValue(ModelClient& client, const Chain& chain, const PartModel& part) {
    std::string text;
    const ModelRes result = client.value(chain, text);
    if (part.isNode) {
      EXPECT_EQ(result, ModelRes_NoValue);
      return;
    }
    EXPECT_EQ(result, ModelRes_Success);
    EXPECT_EQ(text, part.text());
  }

  void expectElement(ModelClient& client, const Chain& chain, const PartModel& part) {
    const auto index = static_cast<unsigned short>(below(5));
    std::string text;
    const ModelRes result = client.value(chain, text, index);
    if (part.isArray && index < part.values.size()) {
      EXPECT_EQ(result, ModelRes_Success);
      EXPECT_EQ(text, part.values[index]);
    } else {
      EXPECT_EQ(result, part.isNode ? ModelRes_NoValue : ModelRes_NoSuchIndex);
    }
  }

  /// What is held of a shape outlasts changes of values. So a part whose shape goes
  /// with its value is changed more than once before a client asks about it again.
  void changeAndAskForShape() {
    const Chain chain = anyOwnPart();
    askBoth(chain, 2);
    for (unsigned changes = 1 + below(3); changes > 0; --changes) {
      changeAtServer(chain);
    }
    for (ModelClient& client : clients_) {
      ask(client, chain, 2 + below(2));
    }
  }

  void changeAtServer(const Chain& chain) {
    PartModel& part = tree_.at(chain);
    const bool isOwn = part.madeBy != PartClass::library;
    if (part.isNode) {
      if (isOwn) {
        foldOrUnfold(chain, part);
      }
      return;
    }
    if (isOwn && below(2) == 0) {
      part.take(anyTexts());
      std::string line = "all " + textOf(chain);
      for (const std::string& text : part.values) {
        line += ' ' + text;
      }
      return tellServer(line);
    }
    const unsigned element = below(static_cast<unsigned>(part.values.size()));
    const std::string text = anyText();
    setElement(part, element, text);
    tellServer("set " + textOf(chain) + ' ' + std::to_string(element) + ' ' + text);
  }

  void foldOrUnfold(const Chain& chain, PartModel& part) {
    part.isFolded = !part.isFolded;
    tellServer("fold " + textOf(chain) + (part.isFolded ? " 1" : " 0"));
  }

  static void setElement(PartModel& part, unsigned element, const std::string& text) {
    part.values[element] = text;
    if (part.madeBy != PartClass::library) {
      part.take(part.values);
    }
  }

  void storeByClient() {
    const Chain chain = anyPart();
    PartModel& part = tree_.at(chain);
    if (part.isNode) {
      return;
    }
    if (part.madeBy != PartClass::library && below(2) == 0) {
      part.take(anyTexts());
      ASSERT_EQ(anyClient().store(chain, part.text()), ModelRes_Success);
      return;
    }
    const unsigned element = below(static_cast<unsigned>(part.values.size()));
    const std::string text = anyText();
    ASSERT_EQ(
        anyClient().store(chain, text,
                          part.isArray ? static_cast<unsigned short>(element) : ModelPartIndex_All),
        ModelRes_Success);
    setElement(part, element, text);
  }

  void addPart() {
    Chain chain = anyPart();
    if (!tree_.at(chain).isNode) {
      return;
    }
    chain.push_back(static_cast<ModelPartId>(1000 + below(50)));
    if (tree_.parts().contains(chain)) {
      return;
    }
    static constexpr std::array kinds{"node", "value", "array", "own", "folding", "folded"};
    add(chain, kinds[below(kinds.size())]);
    if (tree_.at(chain).isFolded) {
      showWhatIsFolded(chain);
    }
  }

  void add(const Chain& chain, const std::string& kind) {
    const std::string name = anyText();
    tellServer("add " + textOf(chain) + ' ' + kind + ' ' + name);
    tree_.add(chain, kind, name);
  }

  /// What came into the tree unseen keeps the promise as well once it is seen.
  void showWhatIsFolded(Chain chain) {
    foldOrUnfold(chain, tree_.at(chain));
    chain.push_back(2);
    askBoth(chain, 0);
    chain.push_back(5);
    add(chain, "value");
    chain.pop_back();
    askBoth(chain, 0);
  }

  void removePart() {
    const Chain chain = anyPart();
    // The wide node is what the walks are good for.
    if (chain.empty() || chain == Chain{9}) {
      return;
    }
    tellServer("remove " + textOf(chain));
    tree_.remove(chain);
  }

  void killAndRestart() {
    askBoth({}, 0);
    server_->signal(SIGKILL);
    ASSERT_TRUE(server_->waitForExit().has_value());
    std::vector<unsigned short> ids;
    for (ModelClient& client : clients_) {
      EXPECT_EQ(client.childIds({}, ids), ModelRes_NotConnected);
    }
    start();
  }

  /// A server that stands still has not changed anything: what is in hand may be
  /// said, the rest runs out of time.
  void askWhileStopped() {
    --stops_;
    server_->signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(server_->pid(), &status, WUNTRACED), server_->pid());
    ModelClient& client = anyClient();
    for (int i = 0; i < 50; ++i) {
      const Chain chain = anyPart();
      std::vector<unsigned short> ids;
      if (client.childIds(chain, ids) == ModelRes_Success) {
        EXPECT_EQ(ids, tree_.children(chain));
      }
    }
    server_->signal(SIGCONT);
    // The connection is good again when an answer has come.
    std::vector<unsigned short> ids;
    while (client.childIds(Chain{}, ids) == ModelRes_Timeout) {
    }
    EXPECT_EQ(ids, tree_.children({}));
  }

  std::mt19937 random_;
  const std::string port_ = test_support::uniquePortName();
  std::unique_ptr<test_support::Process> server_;
  std::array<ModelClient, 2> clients_;
  TreeModel tree_;
  std::vector<Chain> recent_;
  int stops_ = 1;
};

class CoherenceSchedule : public testing::TestWithParam<unsigned> {};

TEST_P(CoherenceSchedule, NoAnswerIsOlderThanWhatWasAcknowledged) {
  Schedule schedule(GetParam());
  for (int i = 0; i < steps && !HasFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    schedule.step();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CoherenceSchedule, testing::Range(1U, 7U));

}  // namespace
