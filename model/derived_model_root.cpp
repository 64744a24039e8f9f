#include "model/derived_model_root.h"

namespace treescope {

DerivedModelRoot::~DerivedModelRoot() = default;

unsigned DerivedModelRoot::receiveModelEvent(const char* /*sender*/, unsigned /*type*/,
                                             EvtSrv::MemoryHolder* /*data*/,
                                             EvtSrv::MemoryHolder* /*reply*/) {
  return EvtSrv::EvtRes_Success;
}

}  // namespace treescope
