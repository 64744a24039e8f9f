#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "modelsrv/model_node.h"
#include "modelsrv/model_root.h"
#include "servers/description_parser.h"
#include "servers/published_tree.h"

// Trees from descriptions, published in the test's own process.

namespace modelsrvd {

inline TreeDescription describe(std::string_view text) {
  auto result = parseTreeDescription(text);
  if (const auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<TreeDescription>(std::move(result));
}

/// A tree of one node with that entry or those entries.
inline TreeDescription nodeWith(const std::string& entry) {
  return describe(R"({"children": [{"children": [)" + entry + "]}]}");
}

class PublishedTrees : public testing::Test {
 protected:
  void publish(const TreeDescription& description) {
    tree_ = std::make_unique<PublishedTree>(description);
    EXPECT_FALSE(tree_->publish(root_));
  }
  /// The node of `nodeWith`.
  ModelSrv::ModelNode& node() {
    return dynamic_cast<ModelSrv::ModelNode&>(*root_.children().at(0));
  }
  ModelSrv::ModelPart* onlyPart() { return node().children().at(0); }
  static std::string textOf(ModelSrv::ModelPart& part) {
    std::ostringstream text;
    EXPECT_EQ(part.save(text, ModelSrv::ModelPartIndex_All), ModelSrv::ModelRes_Success);
    return text.str();
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  std::unique_ptr<PublishedTree> tree_;
};

}  // namespace modelsrvd
