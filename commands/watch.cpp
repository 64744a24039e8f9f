#include <algorithm>
#include <list>
#include <utility>

#include "commands/target_address.h"
#include "model/tree_scope.h"
#include "shell/command_table.h"
#include "shell/paths.h"
#include "shell/results.h"

namespace treescope {

/// The subscribing of a subtree that is under way. Every part and node below is
/// one call of the handler; the call for a node only notes what is below it, so
/// that no depth of the tree is a depth of calls.
struct SubscribingWalk {
  /// `slot` points here for as long as the walk lives.
  explicit SubscribingWalk(SubscribingWalk*& slot) : slot_(slot) { slot_ = this; }
  ~SubscribingWalk() { slot_ = nullptr; }
  SubscribingWalk(const SubscribingWalk&) = delete;
  SubscribingWalk& operator=(const SubscribingWalk&) = delete;

  struct Level {
    std::size_t depth;
    std::size_t baseLength;
    ChildList children;
    std::size_t next = 0;
  };

  void enter(std::size_t depth, const std::string& base, ChildList children) {
    path = base;
    levels.push_back({depth, base.size(), std::move(children)});
  }

  /// Makes `path` that of the next child; false where there is none left.
  bool advance() {
    while (!levels.empty()) {
      Level& level = levels.back();
      if (level.next < level.children.size()) {
        path.resize(level.baseLength);
        path += level.children.name(level.next++);
        return true;
      }
      levels.pop_back();
    }
    return false;
  }

  std::string path;
  std::vector<Level> levels;

 private:
  SubscribingWalk*& slot_;
};

namespace {

/// Whether one list begins with the whole other one, which is not empty.
bool liesOnOneWay(const std::vector<std::string>& a, const std::vector<std::string>& b) {
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
  const SplitPath split = splitAtLastSlash(expandPath(path));
  const auto place = resolveParent(*this, split.parent);
  if (!place) {
    return result::connectError;
  }
  if (!place->isNode()) {
    // Of what lists no children the root alone is known to be a node.
    const bool bareRoot = place->chain.ids.empty() && split.last.empty();
    return recursive && bareRoot ? result::nothing : subscribePath(place->chain.ids);
  }
  if (split.last.empty()) {
    return recursive ? subscribeBelow(options, place->chain.ids, path) : result::nothing;
  }
  const auto child = treescope::findChild(*place, split.last);
  if (!child) {
    return result::notFound;
  }
  if (!hasChildren(child->ids, true)) {
    return subscribePath(child->ids);
  }
  return recursive ? subscribeBelow(options, child->ids, path) : result::nothing;
}

int TreeScope::subscribeBelow(unsigned options, const IdChain& node, const char* path) {
  const bool typed = path != nullptr && *path != '\0';
  const std::string base = typed ? std::string(path) + '/' : std::string();
  ChildList children;
  if (!fetchChildren(node, children, true) || children.empty()) {
    return result::nothing;
  }
  if (subscribingWalk_ != nullptr) {
    // A name such as ".." leads out of the subtree, and could for ever.
    if (node.size() > subscribingWalk_->levels.back().depth) {
      subscribingWalk_->enter(node.size(), base, std::move(children));
    }
    return result::nothing;
  }
  const ChildListCache::Use use(childListCache_);
  SubscribingWalk walk(subscribingWalk_);
  walk.enter(node.size(), base, std::move(children));
  int last = result::nothing;
  while (walk.advance()) {
    const std::size_t levels = walk.levels.size();
    const int code = doEu(options, walk.path.c_str());
    // A node's result is that of the last part below it, which is still to come.
    if (walk.levels.size() == levels) {
      last = code;
    }
  }
  return last;
}

void TreeScope::listSubscriptions(bool resetEach) {
  const ChildListCache::Use use(childListCache_);
  for (const IdChain& chain : currentPart_->subscriptions()) {
    const std::string line = pathText(namePathOf(chain, true));
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
  const ChildListCache::Use use(childListCache_);
  const std::list<IdChain> subscribed = currentPart_->subscriptions();
  for (const IdChain& chain : subscribed) {
    // What lies deeper than the target is not compared and need not be named.
    const std::size_t compared = std::min(chain.size(), target.empty() ? 0 : target.size() - 1);
    std::vector<std::string> place =
        namePathOf({chain.begin(), chain.begin() + static_cast<std::ptrdiff_t>(compared)}, true);
    place.insert(place.begin(), currentPart_->serverName());
    if (liesOnOneWay(target, place)) {
      // One that the server keeps stays in the list.
      static_cast<void>(unsubscribePath(chain));
    }
  }
  return result::success;
}

}  // namespace treescope
