#pragma once

#include <iostream>
#include <sstream>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"

/// The client of the examples: watches /ticks and prints each change, and when the server
/// goes and comes back.
class Watcher : public ModelSrv::ModelRoot {
 public:
  explicit Watcher(EvtSrv::EventPortManager& manager) : ModelRoot(&manager), ticks_(*this) {}

  ModelSrv::ModelRes watch(const std::string& name) {
    ModelSrv::ModelRes result = add(&ticks_);
    if (result == ModelSrv::ModelRes_Success) {
      result = startAsClient(name, CachePeriod_Stop, EvtSrv::ConBehave_Default);
    }
    return result == ModelSrv::ModelRes_Success
               ? ticks_.subscribeToServer(this, 0, nullptr, ModelSrv::ModelPartIndex_All)
               : result;
  }

 private:
  class Ticks : public ModelSrv::ModelPart {
   public:
    explicit Ticks(ModelSrv::ModelRoot& root) : ModelPart(1, "ticks"), root_(root) {}

    ModelSrv::ModelRes update(void* /*context*/, unsigned short index) override {
      std::ostringstream text;
      const ModelSrv::ModelRes result = save(text, index);
      std::cout << "ticks "
                << (result == ModelSrv::ModelRes_Success ? text.str() : ModelSrv::describe(result))
                << std::endl;
      return result;
    }

   private:
    ModelSrv::ModelRoot& root_;
  };

  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override {
    if (type == EvtTyp_Model_Lost) {
      std::cout << "lost " << sender << std::endl;
    } else if (type == EvtTyp_Model_Restored) {
      std::cout << "restored " << sender << std::endl;
    }
    return receiveMain(sender, type, data, reply);
  }

  Ticks ticks_;
};
