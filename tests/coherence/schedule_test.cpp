#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/coherence/expected_reads.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"

// Two clients and a server in another process. In a random order, one step after the other, the
// tree is changed and read, and the server is killed and restarted. So there is one correct
// reply to each request.

namespace {

using namespace ModelSrv;
using namespace coherence;

/// A step of a sanitized build takes several times as long.
constexpr int defaultSteps = test_support::sanitized ? 1000 : 3000;

/// The number of steps of each schedule: TREESCOPE_SCHEDULE_STEPS if it is set.
int steps() {
  const char* const given = std::getenv("TREESCOPE_SCHEDULE_STEPS");
  return given != nullptr ? std::atoi(given) : defaultSteps;
}

class Schedule {
 public:
  explicit Schedule(unsigned seed) : random_(seed) {
    start();
    for (Client& client : clients_) {
      EXPECT_EQ(client.connect(port_), ModelRes_Success);
    }
  }

  /// Lets the server exit, which removes its mailbox.
  ~Schedule() { EXPECT_EQ(server_->finish(), test_support::ExitStatus{}); }
  Schedule(const Schedule&) = delete;
  Schedule& operator=(const Schedule&) = delete;

  void step() {
    const unsigned kind = below(1000);
    if (kind < 360) {
      readAnything();
    } else if (kind < 400) {
      changeAndReadStructure();
    } else if (kind < 600) {
      list();
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
      readWhileStopped();
    }
  }

 private:
  unsigned below(unsigned limit) {
    return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_);
  }
  Client& anyClient() { return clients_[below(2)]; }
  std::string anyText() { return "t" + std::to_string(below(1'000'000)); }

  std::vector<std::string> anyTexts() {
    std::vector<std::string> texts(1 + below(4));
    for (std::string& text : texts) {
      text = anyText();
    }
    return texts;
  }

  Chain anyRecentPart() { return recent_[below(static_cast<unsigned>(recent_.size()))]; }

  /// A part that clients can see; usually one that was listed recently and may be cached.
  Chain anyPart() {
    if (!recent_.empty() && below(10) < 7) {
      Chain chain = anyRecentPart();
      if (!chain.empty() && below(3) == 0) {
        chain.pop_back();
      }
      if (tree_.contains(chain)) {
        return chain;
      }
    }
    auto at = tree_.parts().begin();
    std::advance(at, below(static_cast<unsigned>(tree_.parts().size())));
    Chain chain = at->first;
    while (!tree_.contains(chain)) {
      chain.pop_back();
    }
    return chain;
  }

  /// A part of a class of the test that is not a node; the root if there is none.
  Chain anyVaryingPart() {
    std::vector<Chain> varying;
    for (const auto& [chain, part] : tree_.parts()) {
      if (part.partClass != PartClass::library && !part.isNode && tree_.contains(chain)) {
        varying.push_back(chain);
      }
    }
    return varying.empty() ? Chain{} : varying[below(static_cast<unsigned>(varying.size()))];
  }

  void start() {
    server_ = std::make_unique<test_support::Process>(std::vector<std::string>{
        test_support::buildDirectory() + "/tests/coherence_server", port_});
    ASSERT_TRUE(server_->waitForLine("ready"));
    tree_ = TreeModel::initial();
  }

  void command(const std::string& line) {
    ASSERT_TRUE(server_->write(line + '\n'));
    ASSERT_TRUE(server_->waitForLine("ok")) << line;
  }

  void read(Client& client, const Chain& chain, Read what) {
    expectRead(client, tree_, chain, what, static_cast<ModelPartIndex>(below(5)));
  }

  void readByBoth(const Chain& chain, Read what) {
    for (Client& client : clients_) {
      read(client, chain, what);
    }
  }

  void readAnything() {
    // A recent part may have been removed or hidden since.
    Chain chain = !recent_.empty() && below(4) == 0 ? anyRecentPart() : anyPart();
    if (below(10) == 0) {
      chain.push_back(static_cast<ModelPartId>(60'000 + below(3)));
    }
    read(anyClient(), chain, static_cast<Read>(below(readCount)));
  }

  /// Reads everything in a part of the tree, in the order of a listing.
  void list() {
    Client& client = anyClient();
    const Chain top = anyPart();
    recent_.clear();
    unsigned left = below(60);
    listPart(client, top, left);
  }

  void listPart(Client& client, const Chain& chain, unsigned& left) {
    recent_.push_back(chain);
    for (unsigned what = 0; what < readCount; ++what) {
      read(client, chain, static_cast<Read>(what));
    }
    for (const ModelPartId id : tree_.children(chain)) {
      if (left == 0) {
        return;
      }
      --left;
      Chain child = chain;
      child.push_back(id);
      listPart(client, child, left);
    }
  }

  /// Cached structure outlasts changes of values. So a part whose structure changes with its
  /// value is changed more than once before a client reads it again.
  void changeAndReadStructure() {
    const Chain chain = anyVaryingPart();
    readByBoth(chain, Read::elementSum);
    for (unsigned changes = 1 + below(3); changes > 0; --changes) {
      changeAtServer(chain);
    }
    for (Client& client : clients_) {
      read(client, chain, below(2) == 0 ? Read::elementSum : Read::elementNames);
    }
  }

  void changeAtServer(const Chain& chain) {
    PartModel& part = tree_.at(chain);
    const bool isTestClass = part.partClass != PartClass::library;
    if (part.isNode) {
      if (isTestClass) {
        hideOrShow(chain, part);
      }
      return;
    }
    if (isTestClass && below(2) == 0) {
      part.setTexts(anyTexts());
      std::string line = "all " + textOf(chain);
      for (const std::string& text : part.values) {
        line += ' ' + text;
      }
      return command(line);
    }
    const unsigned element = below(static_cast<unsigned>(part.values.size()));
    const std::string text = anyText();
    setElement(part, element, text);
    command("set " + textOf(chain) + ' ' + std::to_string(element) + ' ' + text);
  }

  void hideOrShow(const Chain& chain, PartModel& part) {
    part.isHiding = !part.isHiding;
    command("hide " + textOf(chain) + (part.isHiding ? " 1" : " 0"));
  }

  static void setElement(PartModel& part, unsigned element, const std::string& text) {
    part.values[element] = text;
    if (part.partClass != PartClass::library) {
      part.setTexts(part.values);
    }
  }

  void storeByClient() {
    const Chain chain = anyPart();
    PartModel& part = tree_.at(chain);
    if (part.isNode) {
      return;
    }
    if (part.partClass != PartClass::library && below(2) == 0) {
      part.setTexts(anyTexts());
      ASSERT_EQ(anyClient().load(chain, part.text()), ModelRes_Success);
      return;
    }
    const unsigned element = below(static_cast<unsigned>(part.values.size()));
    const std::string text = anyText();
    const auto index = part.isArray ? static_cast<ModelPartIndex>(element) : ModelPartIndex_All;
    ASSERT_EQ(anyClient().load(chain, text, false, index), ModelRes_Success);
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
    static constexpr std::array kinds{"node", "value", "array", "varying", "hiding", "hidden"};
    add(chain, kinds[below(kinds.size())]);
    if (tree_.at(chain).isHiding) {
      showHiddenParts(chain);
    }
  }

  void add(const Chain& chain, const std::string& kind) {
    const std::string name = anyText();
    command("add " + textOf(chain) + ' ' + kind + ' ' + name);
    tree_.add(chain, kind, name);
  }

  /// Parts that were hidden when they were added must be coherent too once clients see them.
  void showHiddenParts(Chain chain) {
    hideOrShow(chain, tree_.at(chain));
    chain.push_back(2);
    readByBoth(chain, Read::childIds);
    chain.push_back(5);
    add(chain, "value");
    chain.pop_back();
    readByBoth(chain, Read::childIds);
  }

  void removePart() {
    const Chain chain = anyPart();
    // The node with many children is kept for the listings.
    if (chain.empty() || chain == Chain{9}) {
      return;
    }
    command("remove " + textOf(chain));
    tree_.remove(chain);
  }

  void killAndRestart() {
    readByBoth({}, Read::childIds);
    server_->signal(SIGKILL);
    ASSERT_TRUE(server_->waitForExit().has_value());
    std::vector<unsigned short> ids;
    for (Client& client : clients_) {
      EXPECT_EQ(client.childIds({}, ids), ModelRes_NotConnected);
    }
    start();
  }

  /// A stopped server changes nothing: cached data is current, and other requests time out.
  void readWhileStopped() {
    --stops_;
    server_->signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(server_->pid(), &status, WUNTRACED), server_->pid());
    Client& client = anyClient();
    for (int i = 0; i < 50; ++i) {
      const Chain chain = anyPart();
      std::vector<unsigned short> ids;
      if (client.childIds(chain, ids) == ModelRes_Success) {
        EXPECT_EQ(ids, tree_.children(chain));
      }
    }
    server_->signal(SIGCONT);
    // The connection stays stalled until the server shows life again.
    std::vector<unsigned short> ids;
    while (client.childIds({}, ids) == ModelRes_Timeout) {
    }
    EXPECT_EQ(ids, tree_.children({}));
  }

  std::mt19937 random_;
  const std::string port_ = test_support::uniquePortName();
  std::unique_ptr<test_support::Process> server_;
  std::array<Client, 2> clients_;
  TreeModel tree_;
  std::vector<Chain> recent_;
  int stops_ = 1;
};

class CoherenceSchedule : public testing::TestWithParam<unsigned> {};

TEST_P(CoherenceSchedule, NoReplyIsOlderThanAnAcknowledgedChange) {
  Schedule schedule(GetParam());
  const int count = steps();
  for (int i = 0; i < count && !HasFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    schedule.step();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CoherenceSchedule, testing::Range(1U, 7U));

}  // namespace
