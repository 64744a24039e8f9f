#pragma once

#include "evtsrv/result.h"
#include "modelsrv/result.h"

namespace ModelSrv::internal {

/// What a result of the event port is called in a model.
ModelRes fromPort(EvtSrv::EvtRes result);

}  // namespace ModelSrv::internal
