#pragma once

#include <map>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"

/// A tree of texts as a table: what a server publishes, and what a test expects of
/// its answers.
namespace promise {

using Chain = std::vector<ModelSrv::ModelPartId>;

struct PartModel {
  std::string name;
  bool isNode = false;
  /// In the server's order.
  std::vector<ModelSrv::ModelPartId> children = {};
  bool isArray = false;
  /// One for a single value.
  std::vector<std::string> values = {};
  std::vector<std::string> elementNames = {};
};

class TreeModel {
 public:
  /// The tree that every server begins with: nodes in and out of the order of their
  /// ids, arrays with and without names, a node that is wide, one that is deep, a
  /// value that is long.
  static TreeModel initial();

  [[nodiscard]] bool contains(const Chain& chain) const { return parts_.contains(chain); }
  [[nodiscard]] const PartModel& at(const Chain& chain) const { return parts_.at(chain); }
  [[nodiscard]] PartModel& at(const Chain& chain) { return parts_.at(chain); }
  /// All parts, the root (an empty chain) first.
  [[nodiscard]] const std::map<Chain, PartModel>& parts() const { return parts_; }

  /// Adds a part below one that is there.
  void add(const Chain& chain, PartModel part);
  /// Takes a part out with all that is below it.
  void remove(const Chain& chain);

 private:
  std::map<Chain, PartModel> parts_{{Chain{}, PartModel{"", true}}};
};

/// "1/2/3"; "-" for the root.
std::string textOf(const Chain& chain);
Chain chainOf(const std::string& text);

}  // namespace promise
