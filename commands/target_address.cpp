#include "commands/target_address.h"

#include <utility>

#include "shell/results.h"

namespace treescope {

namespace {

Target failed(TargetFailure failure, NamedChain chain = {}) {
  return {failure, std::move(chain), {}, false};
}

Target insidePart(TreeScope& scope, NamedChain part, std::string indexText,
                  const std::string& path) {
  std::uint16_t position = 0;
  if (indexText.empty() && !path.empty() &&
      scope.findElementIndex(part.ids, path, position, true) == result::success) {
    indexText = std::to_string(position);
  }
  return {TargetFailure::none, std::move(part), std::move(indexText), true};
}

}  // namespace

std::string takeElementSuffix(std::string& component) {
  const std::size_t open = component.find('[');
  const std::size_t close = component.find(']');
  if (open == std::string::npos || close == std::string::npos || close < open + 2) {
    return {};
  }
  std::string index = component.substr(open + 1, close - open - 1);
  component.erase(open, close - open + 1);
  return index;
}

std::optional<ParentPlace> resolveParent(TreeScope& scope, const std::string& parent) {
  ParentPlace place;
  if (!scope.resolveChain(parent, place.chain) ||
      !scope.fetchChildren(place.chain.ids, place.children, true)) {
    return std::nullopt;
  }
  return place;
}

std::optional<NamedChain> findChild(const ParentPlace& place, const std::string& name) {
  const auto position = place.children.findName(name);
  if (!position) {
    return std::nullopt;
  }
  NamedChain chain = place.chain;
  chain.append(place.children.id(*position), place.children.name(*position));
  return chain;
}

Target addressTarget(TreeScope& scope, const std::string& path) {
  SplitPath split = splitAtLastSlash(path);
  std::string indexText = takeElementSuffix(split.last);
  auto place = resolveParent(scope, split.parent);
  if (!place) {
    return failed(TargetFailure::notResolvable);
  }
  if (!place->isNode()) {
    return insidePart(scope, std::move(place->chain), std::move(indexText), path);
  }
  auto child = findChild(*place, split.last);
  if (!child) {
    return failed(TargetFailure::noSuchChild);
  }
  if (scope.hasChildren(child->ids, true)) {
    return failed(TargetFailure::isNode, std::move(*child));
  }
  return {TargetFailure::none, std::move(*child), std::move(indexText), false};
}

}  // namespace treescope
