#include "gateway/wire/shape_check.h"

#include <algorithm>

#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

using namespace ModelSrv;

constexpr std::size_t maxType = 64;

bool isLineOf(std::string_view text, std::size_t maximum) {
  return text.size() <= maximum && isLine(text);
}

bool areAllowed(const PartAttributes& attributes) {
  return isLineOf(attributes.unit, ModelUnit_Max) &&
         isLineOf(attributes.minimum, ModelAttributeText_Max) &&
         isLineOf(attributes.maximum, ModelAttributeText_Max) &&
         isLineOf(attributes.text, ModelAttributeText_Max) &&
         attributes.choices.size() <= ModelChoices_Max &&
         std::all_of(attributes.choices.begin(), attributes.choices.end(),
                     [](const auto& choice) { return isLineOf(choice, ModelAttributeText_Max); });
}

bool hasAllowedElements(const ShapePart& part) {
  const std::vector<std::string>& names = part.elementNames;
  return part.elements <= ModelPartElements_Max &&
         (names.empty() || names.size() == part.elements) &&
         std::all_of(names.begin(), names.end(),
                     [](const auto& name) { return name.size() <= ModelName_Max; });
}

}  // namespace

bool ShapeCheck::closeBelow(std::size_t depth) {
  for (; depth_ > depth; --depth_) {
    Level& level = levels_[depth_ - 1];
    if (!level.isAscending) {
      std::sort(level.ids.begin(), level.ids.end());
      if (std::adjacent_find(level.ids.begin(), level.ids.end()) != level.ids.end()) {
        return false;
      }
    }
    level.ids.clear();
    level.isAscending = true;
  }
  return true;
}

const char* ShapeCheck::findError(const ShapePart& part) {
  if (count_ == maxParts) {
    return "there are too many parts";
  }
  if (part.depth == 0 || part.depth > ModelDepth_Max || part.depth > depth_ + 1) {
    return "its depth skips a level or is beyond the limit";
  }
  if (part.depth == depth_ + 1 && !isNode_) {
    return "it is below a part that is no node";
  }
  if (part.id > ModelPartId_Max || part.name.size() > ModelName_Max ||
      !isLineOf(part.type, maxType) || part.access > ModelPartStatus_Protected) {
    return "its id, name, type or access is beyond the limits";
  }
  if (!hasAllowedElements(part) || !areAllowed(part.attributes)) {
    return "its elements or attributes are beyond the limits";
  }
  texts_ += part.elementNames.size() + part.attributes.choices.size();
  if (texts_ > maxShapeTexts) {
    return "there are too many names of elements and choices";
  }
  return closeBelow(part.depth) ? nullptr : "an id before it is used twice below one node";
}

bool ShapeCheck::add(const ShapePart& part, std::string& error) {
  if (const char* reason = findError(part)) {
    error = "part " + std::to_string(count_) + " of the shape: " + reason;
    return false;
  }
  depth_ = part.depth;
  if (levels_.size() < depth_) {
    levels_.emplace_back();
  }
  Level& level = levels_[depth_ - 1];
  level.isAscending = level.isAscending && (level.ids.empty() || level.ids.back() < part.id);
  level.ids.push_back(part.id);
  isNode_ = part.type == "node";
  ++count_;
  return true;
}

bool ShapeCheck::finish(std::string& error) {
  if (!closeBelow(0)) {
    error = "an id of the shape is used twice below one node";
    return false;
  }
  return true;
}

}  // namespace modelgate
