#include <chrono>
#include <utility>

#include "commands/target_address.h"
#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "model/discovery.h"
#include "model/request_series.h"
#include "shell/command_table.h"
#include "shell/paths.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doTab(const char* head, const char* lastWord) {
  return completeWord(head, lastWord);
}

int TreeScope::completeWord(const char* line, const char* word) {
  if (word == nullptr && !completeCommandWord(completedCommands, line)) {
    return result::success;
  }
  const SplitPath path = splitAtLastSlash(expandPath(word));
  presentCandidates(connected() ? treeCandidates(path) : serverCandidates(path.last));
  return result::success;
}

std::vector<std::string> TreeScope::serverCandidates(const std::string& prefix) {
  std::vector<std::string> names;
  for (const char* key : serverKeys) {
    collectServerNames(names, serverDirectory, key);
  }
  wordTree_->setChildren(names);
  std::erase_if(names, [&prefix](const std::string& name) { return !name.starts_with(prefix); });
  return names;
}

std::vector<std::string> TreeScope::treeCandidates(const SplitPath& path) {
  if (path.last == "..") {
    return {path.last};
  }
  // The user cannot type meanwhile.
  constexpr std::chrono::seconds limit(2);
  const auto end = std::chrono::steady_clock::now() + limit;
  NamedChain parent;
  ChildList children;
  if (!resolveChain(path.parent, parent) || !fetchChildren(parent.ids, children, true)) {
    return {};
  }
  std::vector<std::string> names;
  std::vector<std::string> candidates;
  RequestSeries series(eventPortManager_->clientMutex, true);
  for (std::size_t child = 0; child < children.size(); ++child) {
    names.push_back(children.name(child));
    if (!names.back().starts_with(path.last)) {
      continue;
    }
    IdChain chain = parent.ids;
    chain.push_back(children.id(child));
    candidates.push_back(names.back());
    series.next();
    if (std::chrono::steady_clock::now() < end && hasChildren(chain, false)) {
      appendComponent(candidates.back(), "");
    }
  }
  parent.names.insert(parent.names.begin(), currentPart()->serverName());
  wordTree_->at(parent.names).setChildren(names);
  return candidates;
}

}  // namespace treescope
