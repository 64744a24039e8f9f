#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "modelsrv/model_part.h"

namespace modelgate {

/// A read-only part whose value is computed when it is read, such as an age.
///
/// Threads: as for `ModelPart`.
class LivePart final : public ModelSrv::ModelPart {
 public:
  /// Appends nothing and returns false if there is no value now. Must not throw but for memory.
  using Read = std::function<bool(std::string& out)>;

  /// `type` is valid for good; `unit` may be empty. The text describes the part for a person.
  LivePart(ModelSrv::ModelPartId id, std::string_view name, std::string_view type, Read read,
           std::string unit, std::string text);
  ~LivePart() override { detach(); }

  /// Notifies the subscribers if the value is another one than at the last call. Costs little if
  /// there are none.
  void refresh();

 protected:
  [[nodiscard]] std::string_view typeName() const override { return type_; }
  ModelSrv::ModelRes appendText(std::string& out, ModelSrv::ModelPartIndex index) const override;
  ModelSrv::ModelRes storeText(std::string_view text, bool flag, ModelSrv::ModelPartIndex index,
                               bool fromClient) override;

 private:
  const std::string_view type_;
  const Read read_;
  std::string last_;
};

}  // namespace modelgate
