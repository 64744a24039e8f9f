#include "gateway/viewer/shape_collector.h"

#include <utility>

#include "gateway/wire/limits.h"
#include "gateway/wire/shape.h"

namespace modelgate {

ShapeCollector::ShapeCollector(std::vector<std::string> hashes)
    : hashes_(std::move(hashes)), missing_(hashes_.empty() ? 1 : hashes_.size()) {
  if (hashes_.size() > maxPages) {
    hashes_.clear();
  }
  pages_.resize(hashes_.size());
  taken_.resize(hashes_.size());
  // A broker retains no message without a payload, so an empty page does not come.
  for (std::size_t i = 0; i < hashes_.size(); ++i) {
    static_cast<void>(take(i, {}));
  }
}

ShapeCollector::Result ShapeCollector::take(std::size_t page, std::string_view payload) {
  if (page >= hashes_.size() || taken_[page]) {
    return Result::ignored;
  }
  if (payload.size() > maxPage || pageHash(payload) != hashes_[page]) {
    return Result::wrong;
  }
  pages_[page] = payload;
  taken_[page] = true;
  --missing_;
  return Result::taken;
}

}  // namespace modelgate
