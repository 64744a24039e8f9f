#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "gateway/viewer/live_part.h"
#include "modelsrv/model_node.h"

namespace modelgate {

/// What a mirror knows of its device and of the way to it.
class LinkStatus {
 public:
  /// "online", "conflict", "unreachable", "offline" or "silent".
  [[nodiscard]] virtual std::string_view stateText() const = 0;
  /// Since the device was last heard.
  [[nodiscard]] virtual std::optional<std::chrono::milliseconds> age() const = 0;
  /// Of the last request.
  [[nodiscard]] virtual std::optional<std::chrono::microseconds> roundTrip() const = 0;
  /// Batches that were missed, and requested again, since this mirror began.
  [[nodiscard]] virtual std::uint64_t gaps() const = 0;
  /// By how much the device's real time is ahead of this machine's.
  [[nodiscard]] virtual std::optional<std::chrono::milliseconds> skew() const = 0;

 protected:
  ~LinkStatus() = default;
};

/// The node `_link` of a mirror.
class LinkNode final : public ModelSrv::ModelNode {
 public:
  /// `status` outlives the node.
  LinkNode(ModelSrv::ModelPartId id, const LinkStatus& status);
  ~LinkNode() override;

  /// Notifies the subscribers of what has changed.
  void refresh();

 protected:
  // The parts cannot be cached, the list of them can.
  [[nodiscard]] bool isCacheable() const override { return true; }

 private:
  LivePart state_;
  LivePart age_;
  LivePart roundTrip_;
  LivePart gaps_;
  LivePart skew_;
};

/// The name of the node, by which a mirror is known as one.
inline constexpr std::string_view linkNodeName = "_link";

/// Appends a number of milliseconds with three digits after the point, such as "0.431".
void appendMilliseconds(std::string& out, std::chrono::microseconds time);

}  // namespace modelgate
