#include "model/model_data_tree.h"

namespace treescope {

ModelDataTree::~ModelDataTree() = default;

void ModelDataTree::clear() {
  text_.clear();
  place_ = {};
  objects_.clear();
}

}  // namespace treescope
