#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "modelsrv/tree_part.h"
#include "tools/match.h"
#include "tools/tree_image.h"

namespace treectl {

/// The names of the children of a node, as they are reported one by one.
class SiblingNames {
 public:
  /// Whether it is the first one of that name.
  bool add(std::string_view name);

 private:
  /// As long as each name is greater than the one before, none can repeat: they are kept joined,
  /// with the end of each.
  bool isAscending_ = true;
  std::string joined_;
  std::vector<std::size_t> ends_;
  std::unordered_set<std::string> names_;  ///< all, if they do not ascend
};

/// Passes the parts of a subtree on while they are read: `Subtree` has all of them at once. For one
/// thread.
class PartStream {
 public:
  /// Below the node `match`; addresses are given without their first `baseSize` bytes. `take` gets
  /// the parts and `restart` is called if the reading begins again: what was taken is void then.
  /// All outlive this object.
  PartStream(const Match& match, std::size_t baseSize, const PartTaker& take,
             const std::function<void()>& restart);

  /// Takes what `Connection::visitSubtree` reports. False ends it.
  bool add(const ModelSrv::TreePart& part);

  /// Whether it was ended because the server has its children in another order than that of their
  /// ids, in which they are reported.
  [[nodiscard]] bool isUnsorted() const { return isUnsorted_; }
  /// Why it was ended; and the address of the part that was reported last.
  [[nodiscard]] ModelSrv::ModelRes result() const { return result_; }
  [[nodiscard]] const std::string& address() const { return address_; }

 private:
  struct Level {
    std::size_t addressSize;  ///< of the node
    SiblingNames names;       ///< of the children so far
  };

  bool addNode(const ModelSrv::TreePart& node);
  bool addPart(const ModelSrv::TreePart& part);

  const Match& match_;
  std::size_t baseSize_;
  const PartTaker& take_;
  const std::function<void()>& restart_;
  std::string address_;
  std::vector<Level> levels_;
  ImagePart part_;                                                     ///< reused
  ModelSrv::ModelPartStatus access_ = ModelSrv::ModelPartStatus_Void;  ///< of `part_`
  bool isUnsorted_ = false;
  ModelSrv::ModelRes result_ = ModelSrv::ModelRes_Success;
};

}  // namespace treectl
