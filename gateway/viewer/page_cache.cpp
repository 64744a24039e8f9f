#include "gateway/viewer/page_cache.h"

namespace modelgate {

void PageCache::add(const std::string& hash, std::string_view page) {
  if (find(hash) != nullptr) {
    return;
  }
  pages_.push_front({hash, std::string(page)});
  byHash_.emplace(pages_.front().hash, pages_.begin());
  bytes_ += hash.size() + page.size();
  while (bytes_ > maxBytes) {
    const Page& oldest = pages_.back();
    bytes_ -= oldest.hash.size() + oldest.bytes.size();
    byHash_.erase(oldest.hash);
    pages_.pop_back();
  }
}

const std::string* PageCache::find(const std::string& hash) {
  const auto at = byHash_.find(hash);
  if (at == byHash_.end()) {
    return nullptr;
  }
  pages_.splice(pages_.begin(), pages_, at->second);
  return &at->second->bytes;
}

}  // namespace modelgate
