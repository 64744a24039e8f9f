#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "gateway/link/broker_link.h"
#include "gateway/wire/device_state.h"
#include "gateway/wire/request.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/topics.h"
#include "gateway/wire/values.h"

namespace bench {

/// A device with one small server, "host", as an exporter shows it: with the real codec and a
/// connection of its own, but no server. It replies to requests, accepts every store, and changes a
/// value each second while it has a lease. Threads: that of the loop.
class SimulatedDevice {
 public:
  /// `link` has the broker and the certificates. Throws as `BrokerLink` does.
  SimulatedDevice(modelgate::EventLoop& loop, modelgate::LinkOptions link, const std::string& fleet,
                  const std::string& device, std::uint64_t epoch);

  void start() { link_.start(); }

  /// How often a connection was lost or could not be made, by reason, for all devices.
  static const std::map<std::string, std::size_t>& losses();

 private:
  struct Target {
    modelgate::Request request;
    modelgate::Verb verb = modelgate::Verb::get;
  };

  modelgate::BrokerLink::Handlers handlers();
  [[nodiscard]] static modelgate::LinkOptions withWill(modelgate::LinkOptions link,
                                                       const modelgate::Topics& topics,
                                                       const std::string& fleet,
                                                       const std::string& device,
                                                       std::uint64_t epoch);
  void publishAll();
  void handle(const modelgate::Message& message);
  [[nodiscard]] modelgate::Reply carryOut(const Target& target);
  [[nodiscard]] modelgate::Batch batchOf(std::vector<modelgate::PositionedValue> values) const;
  [[nodiscard]] std::vector<modelgate::PositionedValue> allValues() const;
  /// The position of the part of `request`, or the size of the shape.
  [[nodiscard]] std::size_t find(const modelgate::Request& request) const;
  void lease();
  void change();

  modelgate::EventLoop& loop_;
  const modelgate::Topics topics_;
  const std::uint64_t epoch_;
  std::vector<std::string> values_;  ///< by position; empty for a node
  std::uint64_t sequence_ = 1;
  std::uint64_t counter_ = 0;
  modelgate::EventLoop::Clock::time_point leaseEnd_;
  modelgate::EventLoop::Timer nextChange_;
  modelgate::BrokerLink link_;
};

}  // namespace bench
