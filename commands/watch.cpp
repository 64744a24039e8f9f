#include <algorithm>
#include <list>
#include <utility>

#include "commands/target_address.h"
#include "commands/tree_scope.h"
#include "model/memory_budget.h"
#include "shell/command_table.h"
#include "shell/paths.h"
#include "shell/results.h"
#include "term/shown_text.h"

namespace treescope {

/// The subscription of a subtree by `eu -r`. The handler is called for every part and
/// node below; for a node it only enters the node here: a recursive handler would
/// overflow the stack on a deep tree.
class SubtreeSubscriber {
 public:
  /// `slot` points to the subscriber while the subscriber exists.
  explicit SubtreeSubscriber(SubtreeSubscriber*& slot) : slot_(slot) { slot_ = this; }
  ~SubtreeSubscriber() { slot_ = nullptr; }
  SubtreeSubscriber(const SubtreeSubscriber&) = delete;
  SubtreeSubscriber& operator=(const SubtreeSubscriber&) = delete;

  /// Makes the children of a node next. `depth` is the length of the node's id chain;
  /// `base` is the text before each child's name.
  /// Returns false if the nodes above it and their children take too much memory.
  [[nodiscard]] bool enter(std::size_t depth, const std::string& base, ChildList children) {
    const std::size_t memory = children.memory();
    if (!budget_.take(memory)) {
      return false;
    }
    path_ = base;
    levels_.push_back({depth, base.size(), std::move(children), memory});
    return true;
  }

  /// Sets `path` to the next child; returns false if there is none.
  bool advance() {
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.next < level.children.size()) {
        path_.resize(level.baseLength);
        path_ += level.children.name(level.next++);
        return true;
      }
      budget_.putBack(level.memory);
      levels_.pop_back();
    }
    return false;
  }

  /// The path of the current child, expanded: a "~" at its beginning is part of a name.
  [[nodiscard]] const std::string& path() const { return path_; }
  /// The depth of the current child's node.
  [[nodiscard]] std::size_t depth() const { return levels_.back().depth; }
  /// How many nodes are entered.
  [[nodiscard]] std::size_t levels() const { return levels_.size(); }

 private:
  struct Level {
    std::size_t depth;
    std::size_t baseLength;
    ChildList children;
    std::size_t memory;  ///< of the list
    std::size_t next = 0;
  };

  SubtreeSubscriber*& slot_;
  std::string path_;
  std::vector<Level> levels_;
  MemoryBudget budget_;
};

namespace {

/// Whether the shorter list is not empty and is a prefix of the other.
bool isPrefixOfOther(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  const std::size_t compared = std::min(a.size(), b.size());
  return compared != 0 &&
         std::equal(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(compared), b.begin());
}

}  // namespace

int TreeScope::doEu(unsigned options, const char* path) {
  if (!connected()) {
    return result::connectError;
  }
  if ((options & optionLong) != 0) {
    listSubscriptions((options & optionMore) != 0);
    return result::success;
  }
  const bool recursive = (options & optionRecursive) != 0;
  // The path of a child in a subtree is expanded already (`SubtreeSubscriber::path`).
  const std::string expanded = subtreeSubscriber_ == nullptr ? expandPath(path) : path;
  const SplitPath split = splitAtLastSlash(expanded);
  const auto parent = resolveParent(*this, split.parent);
  if (!parent) {
    return result::connectError;
  }
  if (!parent->isNode()) {
    // Without children only the root is known to be a node.
    const bool emptyRoot = parent->chain.ids.empty() && split.last.empty();
    return recursive && emptyRoot ? result::nothing : subscribePath(parent->chain.ids);
  }
  if (split.last.empty()) {
    return recursive ? subscribeBelow(options, parent->chain.ids, expanded) : result::nothing;
  }
  const auto child = treescope::findChild(*parent, split.last);
  if (!child) {
    return result::notFound;
  }
  if (!hasChildren(child->ids, true)) {
    return subscribePath(child->ids);
  }
  return recursive ? subscribeBelow(options, child->ids, expanded) : result::nothing;
}

int TreeScope::subscribeBelow(unsigned options, const IdChain& node, const std::string& path) {
  std::string base = path;
  if (!base.empty()) {
    appendComponent(base, "");
  }
  ChildList children;
  if (!fetchChildren(node, children, true) || children.empty()) {
    return result::nothing;
  }
  if (subtreeSubscriber_ != nullptr) {
    // A name such as ".." leads out of the subtree, and could do so without end.
    if (node.size() > subtreeSubscriber_->depth()) {
      return subtreeSubscriber_->enter(node.size(), base, std::move(children))
                 ? result::nothing
                 : result::outOfMemory;
    }
    return result::nothing;
  }
  const ChildListCache::Use cached = useChildListCache();
  SubtreeSubscriber subscriber(subtreeSubscriber_);
  int last = subscriber.enter(node.size(), base, std::move(children)) ? result::nothing
                                                                      : result::outOfMemory;
  while (last != result::outOfMemory && subscriber.advance()) {
    const std::size_t levels = subscriber.levels();
    const int code = doEu(options, subscriber.path().c_str());
    // The result of a node that was entered is that of its last part.
    if (subscriber.levels() == levels) {
      last = code;
    }
  }
  return last;
}

void TreeScope::listSubscriptions(bool resetEach) {
  const ChildListCache::Use cached = useChildListCache();
  for (const IdChain& chain : currentPart()->subscriptions()) {
    const std::string line = shownText(pathText(namePathOf(chain, true)));
    printer_.printLineReset({0, colourDefault, line.c_str()}, resetEach, false);
  }
}

int TreeScope::doCat(unsigned options, const char* path) {
  return doEu(options, path);
}

int TreeScope::doDu(const char* path) {
  if (!connected()) {
    return result::nothing;
  }
  std::vector<std::string> target = currentPath_;
  followPath(expandPath(path), target);
  const ChildListCache::Use cached = useChildListCache();
  const std::list<IdChain> subscribed = currentPart()->subscriptions();
  for (const IdChain& chain : subscribed) {
    // Names below the target are not compared, so they are not fetched.
    const std::size_t compared = std::min(chain.size(), target.empty() ? 0 : target.size() - 1);
    std::vector<std::string> names =
        namePathOf({chain.begin(), chain.begin() + static_cast<std::ptrdiff_t>(compared)}, true);
    names.insert(names.begin(), currentPart()->serverName());
    if (isPrefixOfOther(target, names)) {
      // A subscription that cannot be cancelled stays in the list.
      static_cast<void>(unsubscribePath(chain));
    }
  }
  return result::success;
}

}  // namespace treescope
