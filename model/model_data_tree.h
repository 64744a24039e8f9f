#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/cdir_tree.h"
#include "model/id_chain.h"

namespace treescope {

/// A directory that stands for a place in a server's tree and owns objects found
/// there.
///
/// A plain value of one thread; nothing here can fail.
class ModelDataTree : public CdirTree {
 public:
  using CdirTree::CdirTree;
  ~ModelDataTree() override;

  /// Empties the place and the text and deletes the objects. What the directory
  /// itself is called and holds stays, and so do the words.
  void clear() override;

  [[nodiscard]] const std::string& text() const { return text_; }
  void setText(std::string text) { text_ = std::move(text); }

  [[nodiscard]] const NamedChain& place() const { return place_; }
  void setHandle(NamedChain place) { place_ = std::move(place); }

  [[nodiscard]] const std::vector<std::unique_ptr<CdirTree>>& objects() const { return objects_; }
  void addObject(std::unique_ptr<CdirTree> object) { objects_.push_back(std::move(object)); }

  [[nodiscard]] const std::array<std::uint32_t, 2>& dataWords() const { return dataWords_; }
  void setDataWords(std::array<std::uint32_t, 2> words) { dataWords_ = words; }

 private:
  std::string text_;
  NamedChain place_;
  std::vector<std::unique_ptr<CdirTree>> objects_;
  std::array<std::uint32_t, 2> dataWords_{};
};

}  // namespace treescope
