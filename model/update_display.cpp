#include <cstdio>

#include "model/tree_scope.h"
#include "model/update_decoding.h"

namespace treescope {

unsigned TreeScope::receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                                      EvtSrv::MemoryHolder* reply) {
  if (type != EvtTyp_Model_Update) {
    return receiveMain(sender, type, data, reply);
  }
  // The library keeps a connection that the shell has left, and what was
  // subscribed on it.
  if (connected()) {
    displayUpdate(decodeUpdate(*data));
  }
  return EvtSrv::EvtRes_Success;
}

void TreeScope::displayUpdate(const IdChain& chain) {
  const std::string path = pathText(namePathOf(chain, false));
  printer_.printLine({0, colourDefault, path.c_str()}, false);
  std::fflush(stdout);
}

}  // namespace treescope
