#pragma once

#include <map>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"

/// A tree of texts as a table: what a server publishes, and what a test expects of
/// its answers.
namespace coherence {

using Chain = std::vector<ModelSrv::ModelPartId>;

/// Whose class a part is of: one of the library's, or one of the program's own that
/// tells of a change before it makes it, or that tells of none.
enum class PartClass { library, telling, silent };

struct PartModel {
  std::string name;
  bool isNode = false;
  /// In the server's order.
  std::vector<ModelSrv::ModelPartId> children = {};
  bool isArray = false;
  /// One for a single value.
  std::vector<std::string> values = {};
  std::vector<std::string> elementNames = {};
  PartClass madeBy = PartClass::library;
  /// A node of the program's own may hide its children.
  bool isFolded = false;

  /// Gives a part of the program's own these texts for a value, and the elements and
  /// names that go with them: one is no array, an even number has names that tell of
  /// the texts.
  void take(std::vector<std::string> texts);
  /// The whole value.
  [[nodiscard]] std::string text() const;
};

class TreeModel {
 public:
  /// The tree that every server begins with: nodes in and out of the order of their
  /// ids, arrays with and without names, a node that is wide, one that is deep, a
  /// value that is long.
  static TreeModel initial();

  /// Whether a client finds a part there: it exists, and nothing above it is folded.
  [[nodiscard]] bool contains(const Chain& chain) const;
  /// The children that a client is told of.
  [[nodiscard]] const std::vector<ModelSrv::ModelPartId>& children(const Chain& chain) const;
  [[nodiscard]] const PartModel& at(const Chain& chain) const { return parts_.at(chain); }
  [[nodiscard]] PartModel& at(const Chain& chain) { return parts_.at(chain); }
  /// All parts, also those that are hidden, the root (an empty chain) first.
  [[nodiscard]] const std::map<Chain, PartModel>& parts() const { return parts_; }

  /// Adds a part below one that is there.
  void add(const Chain& chain, PartModel part);
  /// Adds what a test adds at one time: a "node", "value", "array", "own" or "folding",
  /// or a "folded" that already has parts below it.
  void add(const Chain& chain, const std::string& kind, std::string name);
  /// Takes a part out with all that is below it.
  void remove(const Chain& chain);

 private:
  std::map<Chain, PartModel> parts_{{Chain{}, PartModel{"", true}}};
};

/// "1/2/3"; "-" for the root.
std::string textOf(const Chain& chain);
Chain chainOf(const std::string& text);

/// The texts between line feeds; one where there is none.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace coherence
