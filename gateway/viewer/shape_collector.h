#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace modelgate {

/// Collects the pages of a shape, in any order. Keeps a page only if its hash is the one that the
/// device's state lists there, so hostile pages cost no memory.
class ShapeCollector {
 public:
  /// The hashes in the order of the pages; at most `maxPages`, or nothing is ever complete.
  explicit ShapeCollector(std::vector<std::string> hashes);

  enum class Result {
    ignored,  ///< no such page, or it is there already
    wrong,    ///< too large, or another hash
    taken,
  };
  Result take(std::size_t page, std::string_view payload);

  [[nodiscard]] bool isComplete() const { return missing_ == 0; }
  [[nodiscard]] std::size_t missing() const { return missing_; }
  [[nodiscard]] bool isMissing(std::size_t page) const {
    return page < taken_.size() && !taken_[page];
  }
  [[nodiscard]] const std::vector<std::string>& hashes() const { return hashes_; }
  [[nodiscard]] std::span<const std::string> pages() const { return pages_; }

 private:
  std::vector<std::string> hashes_;
  std::vector<std::string> pages_;
  std::vector<bool> taken_;
  std::size_t missing_;
};

}  // namespace modelgate
