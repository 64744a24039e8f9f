#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_root.h"

namespace modelsrvd {

/// A client that reads a server's tree by names, for tests. For one thread.
class TreeClient {
 public:
  explicit TreeClient(const std::string& port);
  ~TreeClient();
  TreeClient(const TreeClient&) = delete;
  TreeClient& operator=(const TreeClient&) = delete;

  [[nodiscard]] ModelSrv::ModelRes connected() const { return connected_; }

  /// The text of the part at a path such as "/drive/speed"; a text in "<>" says
  /// what came instead.
  std::string get(std::string_view path);
  ModelSrv::ModelRes store(std::string_view path, const std::string& text);
  ModelSrv::ModelRes subscribe(std::string_view path);

  /// The names and ids of the children; empty where there are none.
  std::vector<std::string> names(std::string_view path);
  std::vector<unsigned short> ids(std::string_view path);
  std::vector<std::string> elementNames(std::string_view path);
  /// Whether there is something at the path.
  bool has(std::string_view path);

  /// Dispatches events until an update comes; false where none comes in time.
  bool waitForUpdate();
  /// Dispatches events until `done` or too long.
  bool pumpUntil(const std::function<bool()>& done);

  [[nodiscard]] unsigned updates() const { return part_.updates; }

 private:
  /// Answers for any part; see ModelPart.
  class AnyPart final : public ModelSrv::ModelPart {
   public:
    explicit AnyPart(ModelSrv::ModelRoot& root) : root_(root) {}
    ~AnyPart() override { detach(); }
    ModelSrv::ModelPartId getId() override;
    ModelSrv::ModelPart* getParentNode() override;
    ModelSrv::ModelRes update(void* context, unsigned short index) override;

    std::vector<ModelSrv::ModelPartId> chain;
    unsigned updates = 0;

   private:
    ModelSrv::ModelRoot& root_;
  };

  /// The part for a request about what stands at `path`; null where nothing does.
  ModelSrv::ModelPart* at(std::string_view path);
  std::optional<std::vector<ModelSrv::ModelPartId>> resolve(std::string_view path);
  ModelSrv::ModelPart* pointAt(std::vector<ModelSrv::ModelPartId> chain);

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  AnyPart part_{root_};
  ModelSrv::ModelRes connected_;
};

}  // namespace modelsrvd
