#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "tests/platform/modelsrv/served_tree.h"
#include "tests/support/port_name.h"

// Concurrent changes and requests: a value in a reply is at least the one acknowledged before the
// request, and at most the last one whose change had begun before the reply.

namespace {

using namespace ModelSrv;
using modelsrv_tests::Chain;
using modelsrv_tests::Client;

constexpr unsigned short parts = 40;

/// Publishes counters, which only grow, and a node whose only child gets larger and larger ids.
/// Records how far the changes have come.
class Counters {
 public:
  Counters() {
    for (unsigned short id = 0; id < parts; ++id) {
      values_.push_back(std::make_unique<ValuePart<std::uint64_t>>(id, "c" + std::to_string(id)));
      EXPECT_EQ(node_.add(values_.back().get()), ModelRes_Success);
    }
    EXPECT_EQ(root_.add(&node_), ModelRes_Success);
    EXPECT_EQ(root_.add(&slot_), ModelRes_Success);
    replaceChild();
    EXPECT_EQ(root_.startAsServer(port_), ModelRes_Success);
    pump_.emplace(manager_);
  }

  [[nodiscard]] const std::string& port() const { return port_; }
  static Chain chainOf(unsigned short id) { return {1, id}; }

  void count(unsigned short id) {
    const std::uint64_t next = acknowledged_[id].load() + 1;
    begun_[id].store(next);
    EXPECT_EQ(values_[id]->setValue(next), ModelRes_Success);
    acknowledged_[id].store(next);
  }

  /// Replaces the child by one with the next id, as long as there are ids.
  void replaceChild() {
    if (childBegun_ == ModelPartId_Max) {
      return;
    }
    const auto next = static_cast<ModelPartId>(childBegun_ + 1);
    childBegun_ = next;
    child_.reset();
    child_ = std::make_unique<ValuePart<std::uint64_t>>(next, "child");
    EXPECT_EQ(slot_.add(child_.get()), ModelRes_Success);
    childAcknowledged_ = next;
  }

  [[nodiscard]] unsigned short childAcknowledged() const { return childAcknowledged_; }
  [[nodiscard]] unsigned short childBegun() const { return childBegun_; }
  [[nodiscard]] std::uint64_t acknowledged(unsigned short id) const { return acknowledged_[id]; }
  [[nodiscard]] std::uint64_t begun(unsigned short id) const { return begun_[id]; }

 private:
  const std::string port_ = test_support::uniquePortName();
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode node_{1, "counters"};
  std::vector<std::unique_ptr<ValuePart<std::uint64_t>>> values_;
  std::array<std::atomic<std::uint64_t>, parts> begun_{};
  std::array<std::atomic<std::uint64_t>, parts> acknowledged_{};
  ModelNode slot_{2, "slot"};
  std::unique_ptr<ValuePart<std::uint64_t>> child_;
  std::atomic<unsigned short> childBegun_{0};
  std::atomic<unsigned short> childAcknowledged_{0};
  std::optional<modelsrv_tests::Pump> pump_;
};

/// Checks the children of the node with one child.
void checkChild(Client& client, const Counters& counters) {
  const unsigned short atLeast = counters.childAcknowledged();
  std::vector<unsigned short> ids;
  ASSERT_EQ(client.childIds({2}, ids), ModelRes_Success);
  const unsigned short atMost = counters.childBegun();
  if (ids.empty()) {
    ASSERT_GT(atMost, atLeast) << "no child, although no replacement was in progress";
  } else {
    ASSERT_EQ(ids.size(), 1U);
    ASSERT_GE(ids.front(), atLeast);
    ASSERT_LE(ids.front(), atMost);
  }
}

/// Checks all counters in the order of a listing.
void checkAll(Client& client, const Counters& counters) {
  std::vector<unsigned short> ids;
  ASSERT_EQ(client.childIds({1}, ids), ModelRes_Success);
  ASSERT_EQ(ids.size(), parts);
  for (const unsigned short id : ids) {
    unsigned short sum = 0;
    ASSERT_EQ(client.elementSum(Counters::chainOf(id), sum), ModelRes_Success);
    const std::uint64_t atLeast = counters.acknowledged(id);
    std::string text;
    ASSERT_EQ(client.save(Counters::chainOf(id), text), ModelRes_Success);
    const std::uint64_t atMost = counters.begun(id);
    const std::uint64_t value = std::stoull(text);
    ASSERT_GE(value, atLeast) << "part " << id;
    ASSERT_LE(value, atMost) << "part " << id;
  }
  checkChild(client, counters);
}

TEST(CoherenceUnderChange, ValuesAreBetweenTheAcknowledgedAndTheBegunChanges) {
  constexpr int listings = 300;
  Counters counters;
  std::atomic<int> activeClients{0};
  std::vector<std::thread> clients;
  for (int i = 0; i < 3; ++i) {
    ++activeClients;
    clients.emplace_back([&] {
      Client client;
      EXPECT_EQ(client.connect(counters.port()), ModelRes_Success);
      for (int listing = 0; listing < listings && !testing::Test::HasFatalFailure(); ++listing) {
        checkAll(client, counters);
        // Served from the cache unless another client invalidates it.
        for (int repeat = 0; repeat < parts && !testing::Test::HasFatalFailure(); ++repeat) {
          checkChild(client, counters);
        }
      }
      --activeClients;
    });
  }
  for (unsigned short id = 0; activeClients > 0;
       id = static_cast<unsigned short>((id + 1) % parts)) {
    counters.count(id);
    if (id == 0) {
      counters.replaceChild();
    }
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

TEST(CoherenceForMany, EachOfFiftyClientsSeesAChangeAtOnce) {
  constexpr int rounds = 60;
  Counters counters;
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 50; ++i) {
    clients.push_back(std::make_unique<Client>());
    ASSERT_EQ(clients.back()->connect(counters.port()), ModelRes_Success);
  }
  for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
    for (const auto& client : clients) {
      checkAll(*client, counters);
    }
    const auto id = static_cast<unsigned short>(round % parts);
    if (round % 2 == 0) {
      counters.count(id);
    }
    if (round % 4 == 0) {
      counters.replaceChild();
    }
    for (const auto& client : clients) {
      checkChild(*client, counters);
      std::string text;
      ASSERT_EQ(client->save(Counters::chainOf(id), text), ModelRes_Success);
      ASSERT_EQ(text, std::to_string(counters.acknowledged(id)));
    }
  }
}

TEST(CoherenceOfALiveServer, EndsWithTheServiceInTheSameProcess) {
  Client client;
  std::vector<unsigned short> ids;
  {
    Counters counters;
    ASSERT_EQ(client.connect(counters.port()), ModelRes_Success);
    ASSERT_EQ(client.childIds({1}, ids), ModelRes_Success);
    ASSERT_EQ(client.childIds({1}, ids), ModelRes_Success);
  }
  EXPECT_EQ(client.childIds({1}, ids), ModelRes_NotConnected);
}

}  // namespace
