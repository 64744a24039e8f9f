#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/support/proxy_part.h"

namespace test_support {

/// A test client that addresses the parts of a server's tree by path. For one thread.
class TreeClient {
 public:
  /// Has a manager of its own.
  explicit TreeClient(const std::string& port);
  /// `manager` must outlive this object.
  TreeClient(EvtSrv::EventPortManager& manager, const std::string& port);
  ~TreeClient();
  TreeClient(const TreeClient&) = delete;
  TreeClient& operator=(const TreeClient&) = delete;

  [[nodiscard]] ModelSrv::ModelRes connected() const { return connected_; }

  /// The value text of the part at a path such as "/drive/speed"; an error in "<>" if
  /// there is none.
  std::string get(std::string_view path);
  ModelSrv::ModelRes store(std::string_view path, const std::string& text);
  /// Stores `text` again and again until that fails; returns the number of stores. The path is
  /// looked up once, so each store is one exchange.
  int storeUntilError(std::string_view path, const std::string& text);
  ModelSrv::ModelRes subscribe(std::string_view path);

  /// The names and ids of the children; empty if there are none.
  std::vector<std::string> names(std::string_view path);
  std::vector<unsigned short> ids(std::string_view path);
  std::vector<std::string> elementNames(std::string_view path);
  /// Whether there is a part at the path.
  bool has(std::string_view path);

  /// Dispatches events until an update arrives; false after the timeout.
  bool waitForUpdate();
  /// Dispatches events until `done` returns true; false after the timeout.
  bool pumpUntil(const std::function<bool()>& done);

  [[nodiscard]] std::size_t updates() const { return part_.updates.size(); }

 private:
  ModelSrv::ModelRes connect(const std::string& port);
  /// The proxy for a request about the part at `path`; null if there is none.
  ModelSrv::ModelPart* at(std::string_view path);
  std::optional<std::vector<ModelSrv::ModelPartId>> resolve(std::string_view path);
  ModelSrv::ModelPart* pointAt(std::vector<ModelSrv::ModelPartId> chain);

  std::optional<EvtSrv::EventPortManager> own_;
  EvtSrv::EventPortManager& manager_;
  ModelSrv::ModelRoot root_{&manager_};
  ProxyPart part_{root_};
  ModelSrv::ModelRes connected_;
};

}  // namespace test_support
