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
/// until they are those that the device's state lists. To some at a time: a broker drops what is
/// above its limit for messages that wait for a client.
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

  /// The most pages that the broker is to send at once.
  static constexpr std::size_t maxPagesAtOnce = 32;

  /// A page has come.
  void take(std::size_t page, std::string_view payload);

 private:
  void collect();
  void subscribe();
  void unsubscribe();
  void watchProgress();
  void retry();
  void finish();
  void release();

  DeviceLink& link_;
  const std::string server_;
  const Done done_;
  std::vector<std::string> wanted_;
  std::optional<ShapeCollector> collector_;  ///< once it is this fetch's turn
  std::shared_ptr<std::function<void()>> turn_;
  std::vector<std::string> filters_;  ///< of the subscriptions
  std::size_t awaited_ = 0;           ///< how many pages these bring
  std::size_t missingBefore_ = 0;     ///< at the last look
  EventLoop::Timer retry_;
  bool saidWrong_ = false;
  unsigned retries_ = 0;  ///< without a page since
};

}  // namespace modelgate
