#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "modelsrv/watch.h"
#include "tools/match.h"

namespace treectl {

/// A part, or an element, whose changes are watched.
struct WatchedPart {
  Chain chain;
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  std::string address;      ///< printed
  std::string name;         ///< the server's; of the top of a watch only if `!isNamed`
  bool isNamed = true;      ///< false: the address has the id instead of the name
  std::string elementName;  ///< of the index; empty if there is none
  std::shared_ptr<const ModelSrv::PartDescription> description;  ///< null until it is needed
  std::optional<Value> value;  ///< the last one; none while it is missing or cannot be read
  std::int64_t time = 0;       ///< of the last value, as in `Change`
  bool isLost = false;         ///< whether its server is
  /// Whether the value is from before the last loss of its server, or the server cannot read it
  /// now.
  bool isOutdated = false;
};

/// Something that a watch reports.
struct Change {
  /// `noValue`: there is a part, but its value is missing or cannot be read at present. `added`, of
  /// a node, and `removed` are reported only if the structure is needed.
  enum class Event { value, noValue, lost, restored, added, removed };

  Event event = Event::value;
  std::string address;  ///< printed, with the index of an element that changed
  /// The element of a whole array that changed.
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  std::string elementName;
  /// Of a value; null if the watch is not typed. The part may have left the tree.
  std::shared_ptr<const ModelSrv::PartDescription> description;
  Value value;
  std::int64_t time = 0;      ///< in microseconds since 1970
  std::uint32_t changes = 0;  ///< how many it stands for; 0 for a current value
  bool isFirst = false;       ///< whether it is the value at the beginning of the watch
  bool isRepeated = false;    ///< whether it is the last value again, after a reconnection
  /// Of a node or part that has appeared after the beginning, if the structure is needed.
  Chain ids;
  std::string name;  ///< with `ids`, if the address has the id instead
};

/// What the program needs of a watch.
struct WatchNeeds {
  bool typed = false;    ///< descriptions of all parts
  bool repeats = false;  ///< values that a reconnection brings again, although they are the same
  /// What appears and leaves, and the names that addresses do not have.
  bool structure = false;
};

/// The chain of the node above; `chain` is not that of the root.
[[nodiscard]] inline Chain parentOf(const Chain& chain) {
  return {chain.begin(), chain.end() - 1};
}

/// What one address stands for on one server: a part, an element, or everything below a node that
/// matches. Follows parts that come and go. For one thread.
class WatchedTree {
 public:
  WatchedTree(Connection& connection, WatchNeeds needs) : connection_(connection), needs_(needs) {}
  WatchedTree(const WatchedTree&) = delete;
  WatchedTree& operator=(const WatchedTree&) = delete;

  /// Watches one part or element.
  ModelSrv::ModelRes startPart(const Match& match);

  /// Watches all parts below `match` that `names` stand for, which outlive this object.
  ModelSrv::ModelRes startBelow(const Match& match, std::vector<NamePattern> names);

  /// Reports the present values of the parts of which nothing else is reported, at the beginning or
  /// after a loss: those that take no subscriptions.
  void complete();

  /// Where changes go, until the next dispatch.
  void setOutput(std::vector<Change>* changes) { changes_ = changes; }

  /// Whether all current values have been reported, and again after a reconnection that has begun.
  [[nodiscard]] bool isComplete() const { return isComplete_ && !isRenewing_; }

  /// Notes whether the connection is lost.
  void setLost(bool isLost);

  [[nodiscard]] Connection& connection() const { return connection_; }

  /// Calls `visit` for each part that has a value, in the order of the chains.
  void forEachPart(const std::function<void(const WatchedPart&)>& visit);

  /// Calls `visit` for the nodes that belong to the structure, each before those below it. The
  /// structure must be needed.
  void forEachNode(const std::function<void(const WatchedPart&)>& visit) const;

 private:
  struct ChainHash {
    std::size_t operator()(const Chain& chain) const {
      return std::hash<std::string_view>()(
          {reinterpret_cast<const char*>(chain.data()), chain.size() * sizeof(chain.front())});
    }
  };

  /// A node or part that the watch has reported.
  struct Entry {
    WatchedPart part;
    std::vector<std::size_t> positions;  ///< in `names_`: what is left to match below
    /// The names of the children, each with the id of the one that has it in its address.
    std::unordered_map<std::string, ModelSrv::ModelPartId> names;
    bool isNode = false;
    bool matches = false;
    bool isStale = false;  ///< not reported since the watch began anew
    bool isNew = false;    ///< has appeared, and no value of it has been reported
  };

  ModelSrv::ModelRes start(const Chain& chain, const ModelSrv::WatchOptions& options);
  void handle(const ModelSrv::WatchEvent& event);
  void add(const ModelSrv::WatchEvent& event);
  void remove(const Chain& chain);
  void removeTop(Entry& top);
  void eraseStale();
  void findNames(WatchedPart& top);
  [[nodiscard]] bool isOfStructure(const Entry& entry) const;
  void reportStructure(Change::Event event, const Entry& entry);
  void reportValue(const ModelSrv::WatchEvent& event);
  void report(Entry& entry, const ModelSrv::WatchEvent& event, std::string_view text);
  void reportMissing(WatchedPart& part, const ModelSrv::WatchEvent& event);
  bool takeWhole(WatchedPart& part, const ModelSrv::WatchEvent& event, std::string_view text,
                 Change& change);
  bool takeElement(WatchedPart& part, const ModelSrv::WatchEvent& event, std::string_view text,
                   Change& change);
  /// Whether the value may have several elements, and how many; 0 for a single value.
  unsigned elementsOf(WatchedPart& part, std::string_view text);
  void describe(WatchedPart& part);

  Connection& connection_;
  WatchNeeds needs_;
  std::vector<NamePattern> names_;
  std::unordered_map<Chain, Entry, ChainHash> entries_;
  std::vector<const WatchedPart*> ordered_;  ///< those that match, by chain, if `isOrdered_`
  bool isOrdered_ = false;
  std::vector<WatchedPart> above_;  ///< nodes above the top whose names are not in its address
  bool isWhole_ = false;            ///< whether it is of everything below a node
  Chain base_;
  Chain key_;  ///< reused
  std::vector<Change>* changes_ = nullptr;
  bool isComplete_ = false;
  bool isRenewing_ = false;  ///< whether the values are being reported again
  ModelSrv::Watch watch_;    ///< the last member: it ends first
};

}  // namespace treectl
