#include <utility>

#include "evtsrv/event_port_manager.h"
#include "model/memory_budget.h"
#include "model/model_client.h"
#include "model/request_series.h"
#include "shell/command_table.h"
#include "term/styled_text.h"

namespace treescope {

namespace {

constexpr std::uint32_t elementsKind = colourGreen;
constexpr std::uint32_t nodeKind = colourBlue;

/// Builds one listing. The nodes between its top and the current one are kept in a
/// list: a recursive function would overflow the stack on a deep tree.
class TreeBuilder {
 public:
  TreeBuilder(ModelClient& client, unsigned options, const IdChain& chain, bool lock)
      : client_(client),
        options_(options),
        series_(client.manager()->clientMutex, lock),
        chain_(chain) {}

  /// Returns false if the listing takes too much memory, and ends before that.
  bool build(ListingNode& node, std::string name, std::uint8_t depth, bool top) {
    enter(node, std::move(name), depth, top);
    while (!levels_.empty() && !budget_.exhausted()) {
      series_.next();
      if (levels_.back().next == levels_.back().children.size()) {
        leaveLevel();
      } else {
        listNextChild();
      }
    }
    return !budget_.exhausted();
  }

 private:
  /// A node whose children are being listed.
  struct Level {
    ListingNode* node;
    std::uint8_t depth;
    ChildList children;
    std::size_t memory;  ///< of the list, which is freed before the node
    std::size_t next = 0;
  };

  [[nodiscard]] bool has(unsigned option) const { return (options_ & option) != 0; }

  void enter(ListingNode& node, std::string name, std::uint8_t depth, bool top) {
    if (name.empty()) {
      name = chain_.empty() ? "root" : childName({}, chain_.back());
    }
    static_cast<void>(budget_.take(name.size()));
    node.name = std::move(name);
    if (client_.hasChildren(chain_, false)) {
      enterNode(node, depth, top);
    } else {
      listPart(node);
    }
  }

  void enterNode(ListingNode& node, std::uint8_t depth, bool top) {
    if (has(optionCount)) {
      node.kindMark = nodeKind;
    }
    if (!top && !has(optionRecursive)) {
      node.addChild();
      return;
    }
    ChildList children = listChildren();
    if (children.empty()) {
      return;
    }
    if (!has(optionRecursive) && depth == 0) {
      if (has(optionLong)) {
        node.value = "/";
      }
      return;
    }
    const std::size_t memory = children.memory();
    if (budget_.take(memory) && budget_.take(children.size() * sizeof(ListingNode))) {
      node.children.reserve(children.size());
      levels_.push_back({&node, depth, std::move(children), memory});
    }
  }

  ChildList listChildren() {
    std::vector<std::uint16_t> ids;
    std::vector<std::string> names;
    const bool listed = client_.fetchChildIds(chain_, ids, false);
    // If this request fails, the children have no names.
    static_cast<void>(client_.fetchChildNames(chain_, names, false));
    return listed ? ChildList(std::move(ids), std::move(names)) : ChildList();
  }

  void leaveLevel() {
    budget_.putBack(levels_.back().memory);
    levels_.pop_back();
    if (!levels_.empty()) {
      chain_.pop_back();
    }
  }

  void listNextChild() {
    Level& level = levels_.back();
    const std::size_t position = level.next++;
    const std::size_t levelsBefore = levels_.size();
    chain_.push_back(level.children.id(position));
    const std::uint16_t sum = client_.elementSum(chain_, false);
    if (sum == 0 || !has(optionRecursive)) {
      enter(level.node->addChild(), level.children.servedName(position),
            static_cast<std::uint8_t>(level.depth - 1), false);
    } else {
      listFlat(*level.node, level.children.name(position), sum);
    }
    if (levels_.size() == levelsBefore) {
      chain_.pop_back();
    }
  }

  void listPart(ListingNode& node) {
    const std::uint16_t sum = client_.elementSum(chain_, false);
    node.kindMark = sum != 0 && has(optionCount) ? elementsKind : 0;
    node.subscribedMark = isSubscribed() ? attributeBold : 0;
    if (sum != 0) {
      listElements(node, sum);
    } else if (has(optionLong) && !(has(ModelClient::optionBelowOnly) && levels_.empty())) {
      node.value.emplace();
      client_.readValueText(chain_, *node.value, false);
      static_cast<void>(budget_.take(node.value->size()));
    }
  }

  void listElements(ListingNode& node, std::uint16_t sum) {
    const std::vector<std::string> names = elementNames();
    const std::size_t count = names.empty() ? sum : names.size();
    if (!budget_.take(count * sizeof(ListingNode))) {
      return;
    }
    node.children.reserve(count);
    for (std::size_t index = 0; index < count && !budget_.exhausted(); ++index) {
      std::string label = '[' + std::to_string(index) + ']';
      if (!names.empty()) {
        label += '(' + names[index] + ')';
      }
      series_.next();
      static_cast<void>(budget_.take(label.size()));
      ListingNode& element = node.addChild();
      element.name = std::move(label);
      readElement(element, index, sum);
    }
  }

  /// Lists the elements of a part as children of the part's parent node.
  void listFlat(ListingNode& node, const std::string& name, std::uint16_t sum) {
    const std::vector<std::string> names = elementNames();
    const std::size_t count = names.empty() ? sum : names.size();
    for (std::size_t index = 0; index < count && !budget_.exhausted(); ++index) {
      std::string label = name + '[' + std::to_string(index) + ']';
      if (!names.empty() && !names[index].empty()) {
        label += '(' + names[index] + ')';
      }
      series_.next();
      static_cast<void>(budget_.take(sizeof(ListingNode) + label.size()));
      ListingNode& element = node.addChild();
      element.name = std::move(label);
      element.kindMark = has(optionCount) ? elementsKind : 0;
      readElement(element, index, count);
    }
  }

  std::vector<std::string> elementNames() {
    std::vector<std::string> names;
    static_cast<void>(client_.fetchElementNames(chain_, names, false));
    return names;
  }

  void readElement(ListingNode& element, std::size_t index, std::size_t sum) {
    if (has(optionLong) && index < sum) {
      element.value.emplace();
      client_.readElementText(chain_, *element.value, static_cast<std::uint16_t>(index), false);
      static_cast<void>(budget_.take(element.value->size()));
    }
  }

  [[nodiscard]] bool isSubscribed() const {
    return client_.connected() && client_.currentPart()->isSubscribed(chain_);
  }

  ModelClient& client_;
  const unsigned options_;
  RequestSeries series_;
  /// The node or part that is being listed.
  IdChain chain_;
  std::vector<Level> levels_;
  MemoryBudget budget_;
};

}  // namespace

bool ModelClient::buildTree(ListingNode& node, unsigned options, const IdChain& chain,
                            std::string name, std::uint8_t depth, bool top, bool lock) {
  return TreeBuilder(*this, options, chain, lock).build(node, std::move(name), depth, top);
}

}  // namespace treescope
