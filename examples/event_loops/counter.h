#pragma once

#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "modelsrv/value_parts.h"

/// The tree that the example servers publish: /ticks, which the server increments, and
/// /limit, which clients may change: from 1 on.
struct Counter {
  explicit Counter(EvtSrv::EventPortManager& manager) : root(&manager) {}

  ModelSrv::ModelRes publish(const std::string& name) {
    ModelSrv::ModelRes result = limit.setAttributes({"", "1", "", "what /ticks stays below", {}});
    result = result == ModelSrv::ModelRes_Success ? root.add(&ticks) : result;
    result = result == ModelSrv::ModelRes_Success ? root.add(&limit) : result;
    return result == ModelSrv::ModelRes_Success ? root.startAsServer(name) : result;
  }

  void tick() { static_cast<void>(ticks.setValue((ticks.value() + 1) % limit.value())); }

  ModelSrv::ValuePart<std::uint32_t> ticks{1, "ticks", 0, ModelSrv::ModelPartStatus_ReadOnly};
  ModelSrv::ValuePart<std::uint32_t> limit{2, "limit", 1000};
  ModelSrv::ModelRoot root;
};
