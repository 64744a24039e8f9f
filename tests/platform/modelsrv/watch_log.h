#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "modelsrv/watch.h"

namespace modelsrv_tests {

/// Records the events of a watch, each as a line: "begin", "added CHAIN NAME" ("/" after a node's
/// name), "value CHAIN TEXT xCHANGES" ("[INDEX]" after the chain for an element), "removed CHAIN",
/// "complete".
class WatchLog {
 public:
  [[nodiscard]] ModelSrv::Watch::Callback callback() {
    return [this](const ModelSrv::WatchEvent& event) { add(event); };
  }

  void add(const ModelSrv::WatchEvent& event) {
    using Kind = ModelSrv::WatchEvent::Kind;
    std::string chain;
    for (const ModelSrv::ModelPartId id : event.chain) {
      chain += (chain.empty() ? "" : ".") + std::to_string(id);
    }
    switch (event.kind) {
      case Kind::begin:
        lines.emplace_back("begin");
        break;
      case Kind::added:
        lines.push_back("added " + chain + " " + std::string(event.name) +
                        (event.isNode ? "/" : ""));
        break;
      case Kind::value:
        addValue(chain, event);
        break;
      case Kind::removed:
        lines.push_back("removed " + chain);
        break;
      case Kind::complete:
        lines.emplace_back("complete");
        break;
    }
  }

  /// Removes and returns the lines so far.
  std::vector<std::string> take() { return std::exchange(lines, {}); }

  std::vector<std::string> lines;
  std::map<std::string, std::string> values;     ///< the last text of each chain
  std::map<std::string, std::uint64_t> changes;  ///< the sum of each chain
  std::int64_t lastTimeNs = 0;

 private:
  void addValue(const std::string& chain, const ModelSrv::WatchEvent& event) {
    std::string text(event.text);
    if (event.result != ModelSrv::ModelRes_Success) {
      text = "(" + std::string(describe(event.result)) + ")";
    }
    const bool isElement = event.index != ModelSrv::ModelPartIndex_All;
    lines.push_back("value " + chain + (isElement ? "[" + std::to_string(event.index) + "]" : "") +
                    " " + text + " x" + std::to_string(event.changes));
    values[chain] = text;
    changes[chain] += event.changes;
    lastTimeNs = event.timeNs;
  }
};

}  // namespace modelsrv_tests
