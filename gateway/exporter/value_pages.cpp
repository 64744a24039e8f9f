#include "gateway/exporter/value_pages.h"

#include <algorithm>

#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelPartIndex_All;

namespace {

/// A page begins with values of that size, so that they may grow.
constexpr std::size_t usualPage = maxPage / 2;
/// For the other fields of a page.
constexpr std::size_t pageHead = 64;

}  // namespace

ValuePages::ValuePages(std::shared_ptr<const ServedTree> tree, ValuePage numbers)
    : tree_(std::move(tree)), numbers_(std::move(numbers)), due_(0, period) {
  divide();
  due_ = PacedSet(starts_.size(), period);
  due_.markAll();
}

void ValuePages::divide() {
  std::size_t size = usualPage;
  std::vector<PositionedValue> values;
  for (Position position = 0; position < tree_->index.size(); ++position) {
    values.clear();
    tree_->values.read({position, ModelPartIndex_All}, values);
    std::size_t added = 0;
    for (const PositionedValue& value : values) {
      added += encodedSize(value);
    }
    if (size + added > usualPage && starts_.size() < maxPages) {
      starts_.push_back(position);
      size = 0;
    }
    size += added;
  }
}

void ValuePages::change(Position position) {
  const auto after = std::upper_bound(starts_.begin(), starts_.end(), position);
  if (after != starts_.begin()) {
    due_.mark(static_cast<std::size_t>(after - starts_.begin()) - 1);
  }
}

std::optional<ValuePages::Page> ValuePages::take(PacedSet::Clock::time_point now,
                                                 std::uint64_t sequence) {
  const std::optional<std::size_t> number = due_.take(now);
  if (!number) {
    return std::nullopt;
  }
  const Position last = *number + 1 < starts_.size() ? starts_[*number + 1]
                                                     : static_cast<Position>(tree_->index.size());
  ValuePage page = numbers_;
  page.sequence = sequence;
  std::size_t size = pageHead;
  for (Position position = starts_[*number]; position < last; ++position) {
    const std::size_t first = page.values.size();
    tree_->values.read({position, ModelPartIndex_All}, page.values);
    std::size_t added = 0;
    for (std::size_t i = first; i < page.values.size(); ++i) {
      added += encodedSize(page.values[i]);
    }
    if (size + added > maxPage) {
      page.values.resize(first);
      continue;
    }
    size += added;
  }
  return Page{*number, encodeValuePage(page)};
}

}  // namespace modelgate
