// A client's connection from its loss to its return.

#include <new>
#include <optional>
#include <string>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/tree_lock.h"

namespace ModelSrv::internal {

using Change = ConnectionHistory::Change;

void ClientSide::deferWork() {
  EvtSrv::internal::ManagerCore& core = root_.manager()->core();
  core.clientMutex().assertHeld();
  core.defer(*this);
}

void ClientSide::connectionLost() {
  TreeLock::assertHeld(root_);
  history_.add(Change::lost);
  deferWork();
}

void ClientSide::connectionMade() {
  TreeLock::assertHeld(root_);
  renewal_.begin();
  // The name may belong to another server now, although the previous one is still alive.
  cache_.clear();
  prefetchEnabled_ = true;
  describeEnabled_ = true;
  deferWork();
}

void ClientSide::replyReceived(std::uint16_t code) {
  if (renewal_.replyReceived(code)) {
    deferWork();
  }
}

bool ClientSide::noteIfRestored() {
  const bool isRestored = history_.isLost() && port_.isOpen() && renewal_.isComplete();
  if (isRestored) {
    history_.add(Change::restored);
  }
  return isRestored;
}

bool ClientSide::runDeferred() {
  TreeLock::assertHeld(root_);
  if (port_.isOpen()) {
    renewal_.sendBatch();
  }
  static_cast<void>(noteIfRestored());
  if (!history_.hasPending()) {
    return false;
  }
  std::string sender;
  EvtSrv::MemoryHolder data;
  try {
    sender = port_.portName();
    data = makeHolder({}, EvtSrv::internal::nativeOrder);
  } catch (const std::bad_alloc&) {
    deferWork();
    return false;
  }
  const unsigned type = history_.take() == Change::lost ? ModelRoot::EvtTyp_Model_Lost
                                                        : ModelRoot::EvtTyp_Model_Restored;
  if (history_.hasPending()) {
    deferWork();
  }
  EvtSrv::MemoryHolder reply;
  static_cast<void>(root_.receive(sender.c_str(), type, &data, &reply));
  return true;
}

}  // namespace ModelSrv::internal
