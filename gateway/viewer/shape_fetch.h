#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/viewer/device_link.h"
#include "gateway/viewer/shape_collector.h"
#include "gateway/wire/shape.h"

namespace modelgate {

/// Fetches the shape of a server of a device: subscribes to its pages, which the broker has kept,
/// until they are those that the device's state lists.
///
/// Threads: that of the loop.
class ShapeFetch {
 public:
  /// Gets the shape and the hashes of its pages. May begin another fetch.
  using Done = std::function<void(const Shape& shape, const std::vector<std::string>& hashes)>;

  /// `link` outlives the object.
  ShapeFetch(DeviceLink& link, std::string server, Done done);
  ~ShapeFetch();
  ShapeFetch(const ShapeFetch&) = delete;
  ShapeFetch& operator=(const ShapeFetch&) = delete;

  /// Fetches the shape with these pages, in place of another that is being fetched. Does nothing if
  /// it is being fetched.
  void begin(const std::vector<std::string>& hashes);
  void cancel();
  [[nodiscard]] bool isActive() const { return !wanted_.empty(); }

  /// A page has come.
  void take(std::size_t page, std::string_view payload);

 private:
  void collect();
  void retry();
  void finish();
  void release();

  DeviceLink& link_;
  const std::string server_;
  const Done done_;
  std::vector<std::string> wanted_;
  std::optional<ShapeCollector> collector_;  ///< once it is this fetch's turn
  std::shared_ptr<std::function<void()>> turn_;
  EventLoop::Timer retry_;
  bool saidWrong_ = false;
};

}  // namespace modelgate
