#include <utility>

#include "commands/tree_scope.h"
#include "model/discovery.h"
#include "shell/command_table.h"
#include "shell/results.h"
#include "term/column_listing.h"
#include "term/line_listing.h"

namespace treescope {

int TreeScope::doLs(unsigned options, const char* path) {
  if (!connected()) {
    if (path != nullptr) {
      return result::nothing;
    }
    listServers();
    return result::success;
  }
  clearListing();
  NamedChain top;
  if (resolveChain(expandPath(path), top)) {
    std::string label = top.names.empty() ? std::string() : top.names.back();
    if (!buildTree(listingTree_, options, top.ids, std::move(label), 1, true, true)) {
      clearListing();
      return result::outOfMemory;
    }
  }
  const bool paging = (options & optionMore) != 0;
  switch (options & (optionRecursive | optionLong)) {
    case 0:
      printNodeColumns(printer_, listingTree_, true, paging);
      break;
    case optionRecursive:
      printTreeList(printer_, listingTree_, true, paging);
      break;
    case optionLong:
      printLongList(printer_, listingTree_, true, paging);
      break;
    default:
      printLongTree(printer_, listingTree_, true, paging);
      break;
  }
  return result::success;
}

void TreeScope::clearListing() {
  freeTree(listingTree_);
  listingTree_ = {};
}

void TreeScope::listServers() {
  clearListing();
  for (const char* key : serverKeys) {
    listServerNodes(listingTree_, serverDirectory, key);
  }
  printNodeColumns(printer_, listingTree_, true, true);
}

}  // namespace treescope
