#include "model/cdir_tree.h"

#include <utility>

namespace treescope {

CdirTree::CdirTree(std::string name) : name_(std::move(name)) {}

CdirTree::~CdirTree() = default;

void CdirTree::clear() {
  name_.clear();
  secondText_.clear();
  words_ = {};
  children_.clear();
}

}  // namespace treescope
