#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <string>
#include <string_view>

namespace modelgate {

/// Pages of shapes by their hashes, for all mirrors: devices of one kind have the same ones. Those
/// that have not been used for the longest time go first.
///
/// Threads: one.
class PageCache {
 public:
  /// The bytes of all pages and hashes.
  static constexpr std::size_t maxBytes = std::size_t{16} * 1024 * 1024;

  /// Adds a page; `hash` must be its own. Does nothing if it is there.
  void add(const std::string& hash, std::string_view page);
  /// The page, or null. Valid until the next call of `add`.
  [[nodiscard]] const std::string* find(const std::string& hash);

  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  struct Page {
    std::string hash;
    std::string bytes;
  };

  std::list<Page> pages_;  ///< the one that was used last first
  std::map<std::string_view, std::list<Page>::iterator> byHash_;
  std::size_t bytes_ = 0;
};

}  // namespace modelgate
