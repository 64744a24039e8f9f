#include "evtsrv/source/port_name.h"

namespace EvtSrv::internal {

bool isPortName(std::string_view name) {
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string mailboxPath(std::string_view name) {
  return std::string(pipeDirectory).append("/").append(name).append(".fifo");
}

}  // namespace EvtSrv::internal
