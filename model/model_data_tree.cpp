#include "model/model_data_tree.h"

namespace treescope {

CdirTree::CdirTree(std::string name) : name_(std::move(name)) {}

CdirTree::~CdirTree() = default;

void CdirTree::clear() {
  name_.clear();
  secondText_.clear();
  words_ = {};
  children_.clear();
}

ModelDataTree::~ModelDataTree() = default;

void ModelDataTree::clear() {
  text_.clear();
  location_ = {};
  objects_.clear();
}

}  // namespace treescope
