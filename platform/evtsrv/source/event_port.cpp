#include "evtsrv/event_port.h"

namespace EvtSrv {

EventPort::EventPort(EventPortManager* manager) : manager_(manager) {}

EventPort::~EventPort() = default;

unsigned EventPort::receive(const char* sender, unsigned type, MemoryHolder* data,
                            MemoryHolder* reply) {
  return receiveModelEvent(sender, type, data, reply);
}

unsigned EventPort::receiveModelEvent(const char* /*sender*/, unsigned /*type*/,
                                      MemoryHolder* /*data*/, MemoryHolder* /*reply*/) {
  return EvtRes_Success;
}

}  // namespace EvtSrv
