#include <cstdio>

#include "model/tree_scope.h"
#include "model/update_decoding.h"
#include "shell/command_table.h"
#include "shell/paths.h"
#include "term/line_listing.h"

namespace treescope {

unsigned TreeScope::receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                                      EvtSrv::MemoryHolder* reply) {
  if (type != EvtTyp_Model_Update) {
    if (connected()) {
      currentPart_->forgetNames();
    }
    return receiveMain(sender, type, data, reply);
  }
  // The library keeps a connection that the shell has left, and what was
  // subscribed on it.
  if (connected()) {
    displayUpdate(decodeUpdate(*data));
  }
  return EvtSrv::EvtRes_Success;
}

std::vector<std::string> TreeScope::namesOfChanged(const IdChain& chain) {
  if (const std::vector<std::string>* cached = currentPart_->cachedNames(chain)) {
    return *cached;
  }
  std::vector<std::string> names;
  if (nameChain(chain, names, false)) {
    currentPart_->noteNames(chain, names);
  }
  return names;
}

void TreeScope::displayUpdate(const IdChain& chain) {
  const std::vector<std::string> names = namesOfChanged(chain);
  ListingNode listing;
  buildTree(listing, optionLong | optionBelowOnly, chain,
            names.empty() ? std::string() : names.back(), 1, true, false);
  const std::string path = pathText(names);
  printer_.printLine({0, colourDefault, path.c_str()}, false);
  printLongTree(printer_, listing, false, false);
  freeTree(listing);
  std::fflush(stdout);
}

}  // namespace treescope
