#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/display/chart.h"
#include "tools/display/table.h"
#include "tools/display/trace.h"
#include "tools/watcher.h"

namespace treectl {

/// What a watch looks like on a terminal.
class LiveView {
 public:
  LiveView() = default;
  virtual ~LiveView() = default;
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

  /// Takes a change that the watcher has returned.
  virtual void take(const Change& change) = 0;

  /// The picture at the time `now`, in microseconds since 1970.
  virtual std::vector<ScreenLine> draw(const Watcher& watcher, Size size, std::int64_t now,
                                       const Style& style) = 0;

  /// After how long the picture is another one without any change, in microseconds; 0: never.
  [[nodiscard]] virtual std::int64_t step(Size size) const = 0;
};

/// A table with a row for each part.
class LiveTable final : public LiveView {
 public:
  void take(const Change& change) override;
  std::vector<ScreenLine> draw(const Watcher& watcher, Size size, std::int64_t now,
                               const Style& style) override;
  [[nodiscard]] std::int64_t step(Size /*size*/) const override { return 0; }

 private:
  TableWidths widths_;
  Size size_;  ///< that the widths are for
};

/// A chart with a curve for each number: of parts, and of the elements of arrays.
class LiveChart final : public LiveView {
 public:
  void take(const Change& change) override;
  std::vector<ScreenLine> draw(const Watcher& watcher, Size size, std::int64_t now,
                               const Style& style) override;
  [[nodiscard]] std::int64_t step(Size size) const override { return chartStep(size); }

 private:
  /// More curves could not be told apart, and their memory is bounded so.
  static constexpr std::size_t mostSeries = 64;

  void add(const std::string& address, std::int64_t time, const std::string& text);
  void addSeries(std::vector<Series>& series, const WatchedPart& part, std::int64_t now);

  std::map<std::string, Trace> traces_;  ///< by address, with the index of an element
};

}  // namespace treectl
