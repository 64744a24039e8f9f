#include "evtsrv/event_port.h"

#include <algorithm>
#include <utility>

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

MemoryHolder::MemoryHolder(std::vector<std::uint8_t> bytes, std::size_t position)
    : bytes_(std::move(bytes)), position_(std::min(position, bytes_.size())) {}

std::size_t MemoryHolder::getCurrentOffset(std::size_t count) {
  const std::size_t offset = position_;
  if (count > bytes_.size() - offset) {
    position_ = bytes_.size();
    return bytes_.size();
  }
  position_ += count;
  return offset;
}

}  // namespace EvtSrv
