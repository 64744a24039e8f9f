#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "modelsrv/model_part.h"

namespace ModelSrv {

/// A part as `ModelRoot::readTree` reports it. Spans and views are valid during the call of the
/// visitor only.
struct TreePart {
  std::span<const ModelPartId> chain;  ///< the part's ids, from the root down
  std::string_view name;
  bool isNode = false;
  /// Of a node: whether the children's order in the server is that of their ids, in which they are
  /// reported. False too if the server does not say: `ModelRoot::getChildIdsFromServer` has it.
  bool childrenSorted = false;
  /// The name of the type of value, as in `PartDescription::type`; empty for a node, or if the
  /// server does not say.
  std::string_view type;
  /// Which clients may store. `ModelPartStatus_Void` for a node, or if it is not known.
  ModelPartStatus access = ModelPartStatus_Void;
  bool subscribable = true;                        ///< true too if it is not known
  unsigned elements = 0;                           ///< of an array; 0 for a single value or a node
  std::span<const std::string_view> elementNames;  ///< none, or one for each element
  /// `ModelRes_Success`; `ModelRes_NoValue` for a node or a part without a value; or why the value
  /// could not be read.
  ModelRes result = ModelRes_NoValue;
  std::string_view text;  ///< the whole value, as `ModelPart::save` gives it
};

/// Receives parts; returns whether it wants more. May make requests. What it throws passes through.
using TreeVisitor = std::function<bool(const TreePart& part)>;

/// How a tree was read.
struct TreeReading {
  /// Whether parts have entered or left the server's tree, anywhere, while it was read in several
  /// exchanges. The parts that were reported have each been there at some time; a part that has
  /// come or gone meanwhile may be missing, or be there. Values are those at the time of their
  /// exchange. Always true for several parts of an older server, which does not say.
  bool structureChanged = false;
};

}  // namespace ModelSrv
