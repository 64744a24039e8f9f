#pragma once

#include <map>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"

/// A tree of texts as a table: what a server publishes, and what a test expects in its replies.
namespace coherence {

using Chain = std::vector<ModelSrv::ModelPartId>;

/// The class of a part: one of the library, or one of the test that is cacheable (it invalidates
/// before each change) or uncacheable.
enum class PartClass { library, cacheable, uncacheable };

struct PartModel {
  std::string name;
  bool isNode = false;
  /// In the server's order.
  std::vector<ModelSrv::ModelPartId> children = {};
  bool isArray = false;
  /// One for a single value.
  std::vector<std::string> values = {};
  std::vector<std::string> elementNames = {};
  PartClass partClass = PartClass::library;
  /// A node of the test's class may hide its children.
  bool isHiding = false;

  /// Sets the texts of a part of the test's class, and its structure: one text is not an array,
  /// and an even number of elements have names, which contain the texts.
  void setTexts(std::vector<std::string> texts);
  /// The whole value.
  [[nodiscard]] std::string text() const;
};

class TreeModel {
 public:
  /// The tree that every server begins with: nodes in the order of their ids and in another
  /// order, arrays with and without names, many children, many levels, a long value.
  static TreeModel initial();

  /// Whether a client finds a part at `chain`: it exists, and no ancestor hides its children.
  [[nodiscard]] bool contains(const Chain& chain) const;
  /// The children that a client sees.
  [[nodiscard]] const std::vector<ModelSrv::ModelPartId>& children(const Chain& chain) const;
  [[nodiscard]] const PartModel& at(const Chain& chain) const { return parts_.at(chain); }
  [[nodiscard]] PartModel& at(const Chain& chain) { return parts_.at(chain); }
  /// All parts, including hidden ones. The root (an empty chain) is the first.
  [[nodiscard]] const std::map<Chain, PartModel>& parts() const { return parts_; }

  /// Adds a part; its parent must exist.
  void add(const Chain& chain, PartModel part);
  /// Adds a part by its kind: "node", "value", "array", "varying", "hiding" (a node), or "hidden"
  /// (a hiding node that hides some descendants).
  void add(const Chain& chain, const std::string& kind, std::string name);
  /// Removes a part and its descendants.
  void remove(const Chain& chain);

 private:
  std::map<Chain, PartModel> parts_{{Chain{}, PartModel{"", true}}};
};

/// "1/2/3"; "-" for the root.
std::string textOf(const Chain& chain);
Chain chainOf(const std::string& text);

/// The texts between line feeds; at least one.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace coherence
