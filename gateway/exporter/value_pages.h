#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/exporter/paced_set.h"
#include "gateway/exporter/sequence_table.h"
#include "gateway/exporter/served_tree.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// The last values of a server in pages for the broker, each at most once a minute. Time comes from
/// outside. For one thread.
class ValuePages {
 public:
  static constexpr std::chrono::seconds period{60};

  /// All pages are to be published. `numbers` has the epoch and the version of the shape.
  ValuePages(std::shared_ptr<const ServedTree> tree, ValuePage numbers);

  void change(Position position);
  void changeAll() { due_.markAll(); }

  [[nodiscard]] std::optional<PacedSet::Clock::time_point> deadline() const {
    return due_.deadline();
  }

  struct Page {
    std::size_t number = 0;
    std::string payload;
  };
  /// A page that may be published now, with the values as they are. A value for which it has no
  /// space is left out.
  [[nodiscard]] std::optional<Page> take(PacedSet::Clock::time_point now, std::uint64_t sequence);

  [[nodiscard]] std::size_t count() const { return starts_.size(); }

 private:
  void divide();

  std::shared_ptr<const ServedTree> tree_;
  ValuePage numbers_;
  std::vector<Position> starts_;  ///< of each page
  PacedSet due_;
};

}  // namespace modelgate
