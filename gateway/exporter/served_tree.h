#pragma once

#include <string>
#include <vector>

#include "gateway/exporter/tree_index.h"
#include "gateway/exporter/value_table.h"

namespace modelgate {

/// A server's tree with its last values. All but the values is constant.
struct ServedTree {
  ServedTree(const Shape& shape, std::vector<std::string> shapePages)
      : index(shape), values(index), pages(std::move(shapePages)) {
    hashes.reserve(pages.size());
    for (const std::string& page : pages) {
      hashes.push_back(pageHash(page));
    }
  }

  const TreeIndex index;
  ValueTable values;
  const std::vector<std::string> pages;  ///< of the shape
  std::vector<std::string> hashes;
};

}  // namespace modelgate
