#pragma once

#include "modelsrv/model_root.h"

namespace treescope {

/// The model client that the shell is: a client's root whose event hook is its
/// own.
///
/// Used by deriving. The library calls the hook from the thread that dispatches
/// events, with the client mutex held.
class DerivedModelRoot : public ModelSrv::ModelRoot {
 public:
  using ModelSrv::ModelRoot::ModelRoot;
  ~DerivedModelRoot() override;

  /// Takes every event without looking at it and returns `EvtRes_Success`; who
  /// derives says what becomes of events.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;
};

}  // namespace treescope
