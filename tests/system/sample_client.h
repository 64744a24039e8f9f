#pragma once

#include <string>

#include "modelsrv/model_root.h"

/// A client with one connection that reads and stores the parts below the root of a
/// tree.
class SampleClient {
 public:
  /// Throws `std::runtime_error` if it cannot connect to `server`.
  SampleClient(EvtSrv::EventPortManager& manager, const std::string& server);

  /// The text of the part with that id; empty if it cannot be read.
  std::string read(ModelSrv::ModelPartId id);

  [[nodiscard]] bool store(ModelSrv::ModelPartId id, const std::string& text);

 private:
  /// The proxy for the part of the next request.
  class Target final : public ModelSrv::ModelPart {
   public:
    ModelSrv::ModelPartId getId() override { return id; }
    ModelSrv::ModelPartId id = 0;
  };

  ModelSrv::ModelRoot root_;
  Target target_;
};
