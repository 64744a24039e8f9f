#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/id_chain.h"

namespace treescope {

/// A directory of an in-memory tree: a name, a second text, words, and the
/// directories below it, which it owns.
///
/// Not thread-safe. No operation fails.
class CdirTree {
 public:
  explicit CdirTree(std::string name = {});
  CdirTree(const CdirTree&) = delete;
  CdirTree& operator=(const CdirTree&) = delete;
  virtual ~CdirTree();

  /// Empties both texts, sets the pair of words to 0 and deletes the children. The
  /// single word is kept.
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

/// A directory for one location in a server's tree. It owns the objects found there.
///
/// Not thread-safe. No operation fails.
class ModelDataTree : public CdirTree {
 public:
  using CdirTree::CdirTree;
  ~ModelDataTree() override;

  /// Empties the location and the text and deletes the objects. The members of
  /// `CdirTree` and the data words are kept.
  void clear() override;

  [[nodiscard]] const std::string& text() const { return text_; }
  void setText(std::string text) { text_ = std::move(text); }

  [[nodiscard]] const NamedChain& location() const { return location_; }
  void setLocation(NamedChain location) { location_ = std::move(location); }

  [[nodiscard]] const std::vector<std::unique_ptr<CdirTree>>& objects() const { return objects_; }
  void addObject(std::unique_ptr<CdirTree> object) { objects_.push_back(std::move(object)); }

  [[nodiscard]] const std::array<std::uint32_t, 2>& dataWords() const { return dataWords_; }
  void setDataWords(std::array<std::uint32_t, 2> words) { dataWords_ = words; }

 private:
  std::string text_;
  NamedChain location_;
  std::vector<std::unique_ptr<CdirTree>> objects_;
  std::array<std::uint32_t, 2> dataWords_{};
};

}  // namespace treescope
