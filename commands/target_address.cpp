#include "commands/target_address.h"

#include <utility>

#include "shell/results.h"

namespace treescope {

namespace {

Target targetError(TargetError error, NamedChain chain = {}) {
  return {error, std::move(chain), {}, false};
}

Target insidePart(ModelClient& client, NamedChain part, std::string indexText,
                  const std::string& path) {
  std::uint16_t index = 0;
  if (indexText.empty() && !path.empty() &&
      client.findElementIndex(part.ids, path, index, true) == result::success) {
    indexText = std::to_string(index);
  }
  return {TargetError::none, std::move(part), std::move(indexText), true};
}

}  // namespace

SplitPath splitAtLastSlash(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return {"", path};
  }
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

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

std::optional<ResolvedParent> resolveParent(ModelClient& client, const std::string& path) {
  ResolvedParent parent;
  if (!client.resolveChain(path, parent.chain) ||
      !client.fetchChildren(parent.chain.ids, parent.children, true)) {
    return std::nullopt;
  }
  return parent;
}

std::optional<NamedChain> findChild(const ResolvedParent& parent, const std::string& name) {
  const auto position = parent.children.findName(name);
  if (!position) {
    return std::nullopt;
  }
  NamedChain chain = parent.chain;
  chain.append(parent.children.id(*position), parent.children.name(*position));
  return chain;
}

Target addressTarget(ModelClient& client, const std::string& path) {
  SplitPath split = splitAtLastSlash(path);
  std::string indexText = takeElementSuffix(split.last);
  auto parent = resolveParent(client, split.parent);
  if (!parent) {
    return targetError(TargetError::notResolvable);
  }
  if (!parent->isNode()) {
    return insidePart(client, std::move(parent->chain), std::move(indexText), path);
  }
  auto child = findChild(*parent, split.last);
  if (!child) {
    return targetError(TargetError::noSuchChild);
  }
  if (client.hasChildren(child->ids, true)) {
    return targetError(TargetError::isNode, std::move(*child));
  }
  return {TargetError::none, std::move(*child), std::move(indexText), false};
}

}  // namespace treescope
