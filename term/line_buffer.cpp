#include "term/line_buffer.h"

#include <algorithm>
#include <string_view>

#include "term/history.h"

namespace treescope {

void LineBuffer::clear() noexcept {
  text_.clear();
  cursor_ = 0;
}

void LineBuffer::insertKey(int code) {
  std::string bytes;
  for (auto rest = static_cast<std::uint32_t>(code); (rest & 0xFFU) != 0; rest >>= 8U) {
    bytes.push_back(static_cast<char>(rest & 0xFFU));
  }
  text_.insert(std::min<std::size_t>(cursor_, text_.size()), bytes);
  moveRight();
}

bool LineBuffer::deleteBackward() {
  if (cursor_ == 0 || text_.empty()) {
    return false;
  }
  if (cursor_ <= text_.size()) {
    text_.erase(cursor_ - 1, 1);
  }
  moveLeft();
  return true;
}

bool LineBuffer::deleteAtCursor() {
  if (cursor_ >= text_.size()) {
    return false;
  }
  text_.erase(cursor_, 1);
  return true;
}

void LineBuffer::killToStart() {
  text_.erase(0, cursor_);
  moveToStart();
}

void LineBuffer::browse(std::vector<std::string>& from, std::vector<std::string>& to,
                        std::uint8_t steps) {
  if (!browsing_) {
    olderLines_ = history_;
    newerLines_.clear();
    browsing_ = true;
  }
  for (; steps > 0 && !from.empty(); --steps) {
    to.push_back(std::exchange(text_, from.back()));
    from.pop_back();
  }
  moveToEnd();
}

bool LineBuffer::replaceLastWord(const std::string& word) {
  const std::size_t separator = text_.find_last_of("/ ");
  if (separator == std::string::npos) {
    return false;
  }
  text_.erase(separator + 1).append(word);
  moveToEnd();
  return true;
}

std::string LineBuffer::accept() {
  Expansion expansion = expandHistory(text_, history_);
  text_ = expansion.run;
  history_.push_back(std::move(expansion.stored));
  browsing_ = false;
  return std::move(expansion.run);
}

std::string commonPrefix(const std::vector<std::string>& candidates) {
  if (candidates.empty()) {
    return {};
  }
  std::string_view common = candidates.front();
  for (const std::string& candidate : candidates) {
    const auto differs =
        std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end()).first;
    common = common.substr(0, static_cast<std::size_t>(differs - common.begin()));
  }
  return std::string(common);
}

}  // namespace treescope
