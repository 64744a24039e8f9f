#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace treescope {

/// A directory of a tree that is kept in memory: a name, a second text, words,
/// and the directories below it, which it owns.
///
/// A plain value of one thread; nothing here can fail.
class CdirTree {
 public:
  explicit CdirTree(std::string name = {});
  CdirTree(const CdirTree&) = delete;
  CdirTree& operator=(const CdirTree&) = delete;
  virtual ~CdirTree();

  /// Empties both texts, sets the pair of words to 0 and deletes what is
  /// below. The single word stays.
  virtual void clear();

  [[nodiscard]] const std::string& name() const { return name_; }

  [[nodiscard]] const std::string& secondText() const { return secondText_; }
  void setSecondText(std::string text) { secondText_ = std::move(text); }

  [[nodiscard]] std::uint32_t word() const { return word_; }
  void setWord(std::uint32_t word) { word_ = word; }

  [[nodiscard]] const std::array<std::uint32_t, 2>& words() const { return words_; }
  void setWords(std::array<std::uint32_t, 2> words) { words_ = words; }

  [[nodiscard]] const std::vector<std::unique_ptr<CdirTree>>& children() const { return children_; }
  void addChild(std::unique_ptr<CdirTree> child) { children_.push_back(std::move(child)); }

 private:
  std::string name_;
  std::string secondText_;
  std::uint32_t word_ = 0;
  std::array<std::uint32_t, 2> words_{};
  std::vector<std::unique_ptr<CdirTree>> children_;
};

}  // namespace treescope
