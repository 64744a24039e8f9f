#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <optional>
#include <vector>

#include "tests/coherence/changing_server.h"
#include "tests/coherence/expected_reads.h"

// Two clients and a server in another process. In a random order, one step after the other, the
// tree is changed and read, and the server is killed and restarted. So there is one correct
// reply to each request.

namespace {

using namespace ModelSrv;
using namespace coherence;

class Schedule {
 public:
  explicit Schedule(unsigned seed) : server_(seed) {
    for (Client& client : clients_) {
      EXPECT_EQ(client.connect(server_.port()), ModelRes_Success);
    }
  }

  void step() {
    const unsigned kind = below(1000);
    if (kind < 360) {
      readAnything();
    } else if (kind < 400) {
      changeAndReadStructure();
    } else if (kind < 600) {
      list();
    } else if (kind < 760) {
      server_.change(anyPart());
    } else if (kind < 900) {
      server_.store(anyClient(), anyPart());
    } else if (kind < 940) {
      addPart();
    } else if (kind < 980) {
      server_.remove(anyPart());
    } else if (kind < 995) {
      killAndRestart();
    } else if (stops_ > 0) {
      readWhileStopped();
    }
  }

 private:
  unsigned below(unsigned limit) { return server_.below(limit); }
  Client& anyClient() { return clients_[below(2)]; }
  Chain anyRecentPart() { return recent_[below(static_cast<unsigned>(recent_.size()))]; }

  /// A part that clients can see; usually one that was listed recently and may be cached.
  Chain anyPart() {
    if (!recent_.empty() && below(10) < 7) {
      Chain chain = anyRecentPart();
      if (!chain.empty() && below(3) == 0) {
        chain.pop_back();
      }
      if (server_.tree().contains(chain)) {
        return chain;
      }
    }
    return server_.anyPart();
  }

  /// A part of a class of the test that is not a node; the root if there is none.
  Chain anyVaryingPart() {
    std::vector<Chain> varying;
    for (const auto& [chain, part] : server_.tree().parts()) {
      if (part.partClass != PartClass::library && !part.isNode && server_.tree().contains(chain)) {
        varying.push_back(chain);
      }
    }
    return varying.empty() ? Chain{} : varying[below(static_cast<unsigned>(varying.size()))];
  }

  void read(Client& client, const Chain& chain, Read what) {
    expectRead(client, server_.tree(), chain, what, static_cast<ModelPartIndex>(below(5)));
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
    for (const ModelPartId id : server_.tree().children(chain)) {
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
      server_.change(chain);
    }
    for (Client& client : clients_) {
      read(client, chain, below(2) == 0 ? Read::elementSum : Read::elementNames);
    }
  }

  void addPart() {
    const std::optional<Chain> chain = server_.addPart(anyPart());
    if (chain.has_value() && server_.tree().at(*chain).isHiding) {
      showHiddenParts(*chain);
    }
  }

  /// Parts that were hidden when they were added must be coherent too once clients see them.
  void showHiddenParts(Chain chain) {
    server_.hideOrShow(chain);
    chain.push_back(2);
    readByBoth(chain, Read::childIds);
    chain.push_back(5);
    server_.add(chain, "value");
    chain.pop_back();
    readByBoth(chain, Read::childIds);
  }

  void killAndRestart() {
    readByBoth({}, Read::childIds);
    server_.kill();
    std::vector<unsigned short> ids;
    for (Client& client : clients_) {
      EXPECT_EQ(client.childIds({}, ids), ModelRes_NotConnected);
    }
    server_.start();
  }

  /// A stopped server changes nothing: cached data is current, and other requests time out.
  void readWhileStopped() {
    --stops_;
    server_.process().signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(server_.process().pid(), &status, WUNTRACED), server_.process().pid());
    Client& client = anyClient();
    for (int i = 0; i < 50; ++i) {
      const Chain chain = anyPart();
      std::vector<unsigned short> ids;
      if (client.childIds(chain, ids) == ModelRes_Success) {
        EXPECT_EQ(ids, server_.tree().children(chain));
      }
    }
    server_.process().signal(SIGCONT);
    // The connection stays stalled until the server shows life again.
    std::vector<unsigned short> ids;
    while (client.childIds({}, ids) == ModelRes_Timeout) {
    }
    EXPECT_EQ(ids, server_.tree().children({}));
  }

  ChangingServer server_;
  std::array<Client, 2> clients_;
  std::vector<Chain> recent_;
  int stops_ = 1;
};

class CoherenceSchedule : public testing::TestWithParam<unsigned> {};

TEST_P(CoherenceSchedule, NoReplyIsOlderThanAnAcknowledgedChange) {
  Schedule schedule(GetParam());
  const int count = scheduleSteps();
  for (int i = 0; i < count && !HasFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    schedule.step();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CoherenceSchedule, testing::Range(1U, 7U));

}  // namespace
