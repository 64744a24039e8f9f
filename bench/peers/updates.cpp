#include "bench/peers/updates.h"

#include <poll.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

#include "bench/baseline_pipes.h"

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned updates = 1000;
constexpr double mostSeconds = 3;

double microsecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

Row roundTrips() {
  auto pipes = std::make_shared<BaselinePipes>(std::nullopt);
  return {"bare", "a round trip over two named pipes",
          [pipes] {
            const Clock::time_point begin = Clock::now();
            if (!pipes->roundTrip()) {
              throw std::runtime_error("no bare round trip");
            }
            return microsecondsSince(begin);
          },
          updates};
}

Row polls() {
  return {"bare", "a poll that does not wait",
          [] {
            constexpr int calls = 100;
            pollfd input{0, POLLIN, 0};
            const Clock::time_point begin = Clock::now();
            for (int i = 0; i < calls; ++i) {
              if (::poll(&input, 1, 0) < 0) {
                throw std::runtime_error("poll");
              }
            }
            return microsecondsSince(begin) / calls;
          },
          updates};
}

/// The empty row of a peer that has no updates.
Row without(const Peer& peer) {
  return {peer.name(), "", nullptr, 0, {}, peer.whyNoUpdates()};
}

void addRows(Work& work, const std::string& who, const Rate& rate) {
  Row& row = work.rows.emplace_back(Row{who, rate.how, rate.measure, 10});
  if (rate.also != nullptr) {
    Row& other = work.rows.emplace_back(Row{who, rate.alsoHow, nullptr});
    row.measure = [rate, &samples = other.samples] {
      const double first = rate.measure();
      samples.push_back(rate.also());
      return first;
    };
  }
}

Work rates(const std::string& key, const std::string& title, const Peers& peers,
           std::vector<Rate> (Peer::*ofPeer)()) {
  Work work{key, title, "thousand/s"};
  for (const auto& peer : peers) {
    if (!peer->whyNoUpdates().empty()) {
      work.rows.push_back(without(*peer));
    }
    for (const Rate& rate : (peer.get()->*ofPeer)()) {
      addRows(work, peer->name(), rate);
    }
  }
  measure(work, mostSeconds);
  return work;
}

}  // namespace

Work updateLatency(const Peers& peers) {
  Work work{"latency", "A store at one client until another has shown it", "us"};
  work.rows.push_back(roundTrips());
  work.rows.push_back(polls());
  for (const auto& peer : peers) {
    const std::shared_ptr<Watcher> watcher = peer->watch();
    if (watcher != nullptr) {
      work.rows.push_back({peer->name(), watcher->how,
                           [watcher, value = 2'000'000]() mutable {
                             const std::string shown = watcher->shown(++value);
                             watcher->tool->clear();
                             const Clock::time_point begin = Clock::now();
                             watcher->store(value);
                             watcher->tool->await(shown);
                             return microsecondsSince(begin);
                           },
                           updates});
    } else {
      work.rows.push_back(without(*peer));
    }
  }
  measure(work, mostSeconds);
  return work;
}

Work answeredStores(const Peers& peers) {
  return rates("answered", "Stores with a subscriber, each answered before the next", peers,
               &Peer::answeredStores);
}

Work streams(const Peers& peers) {
  return rates("stream", "Updates at one subscriber, sent without waiting", peers, &Peer::streams);
}

}  // namespace bench::peers
