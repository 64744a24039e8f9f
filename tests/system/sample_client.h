#pragma once

#include <string>

#include "modelsrv/model_root.h"

/// A client of a served tree: one connection, and texts in and out of the parts
/// below its root.
class SampleClient {
 public:
  /// `std::runtime_error` where `server` cannot be connected to.
  SampleClient(EvtSrv::EventPortManager& manager, const std::string& server);

  /// The text of the part with that id below the root; empty where it has none.
  std::string read(ModelSrv::ModelPartId id);

  [[nodiscard]] bool store(ModelSrv::ModelPartId id, const std::string& text);

 private:
  /// Stands for whichever part is asked for next.
  class Target final : public ModelSrv::ModelPart {
   public:
    ModelSrv::ModelPartId getId() override { return id; }
    ModelSrv::ModelPartId id = 0;
  };

  ModelSrv::ModelRoot root_;
  Target target_;
};
