#include "tests/promise/tree_model.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace promise {

namespace {

using ModelSrv::ModelPartId;

PartModel node(std::string name) {
  return {.name = std::move(name), .isNode = true};
}

PartModel value(std::string name, std::string text) {
  return {.name = std::move(name), .values = {std::move(text)}};
}

PartModel array(std::string name, std::size_t elements, bool named) {
  PartModel part{.name = std::move(name), .isArray = true};
  for (std::size_t i = 0; i < elements; ++i) {
    part.values.push_back("e" + std::to_string(i));
    if (named)
      part.elementNames.push_back("n" + std::to_string(i));
  }
  return part;
}

Chain below(Chain chain, ModelPartId id) {
  chain.push_back(id);
  return chain;
}

}  // namespace

TreeModel TreeModel::initial() {
  TreeModel tree;
  for (const ModelPartId group : {ModelPartId{3}, ModelPartId{1}, ModelPartId{7}}) {
    const Chain at{group};
    tree.add(at, node("group" + std::to_string(group)));
    for (ModelPartId id = 0; id < 5; ++id)
      tree.add(below(at, id), value("value" + std::to_string(id), "0"));
    tree.add(below(at, 8), array("named", 3, true));
    tree.add(below(at, 6), array("unnamed", 1 + group, false));
    tree.add(below(at, 5), value("", "nobody"));
  }
  tree.add({9}, node("wide"));
  for (ModelPartId id = 0; id < 400; ++id)
    tree.add({9, id}, value("w" + std::to_string(id), std::to_string(id)));
  Chain deep{4};
  for (int level = 0; level < 40; ++level) {
    tree.add(deep, node("deeper"));
    deep.push_back(1);
  }
  tree.add(deep, value("bottom", "rock"));
  tree.add({20}, value("long", std::string(20'000, 'x')));
  tree.add({21}, node("empty"));
  return tree;
}

void TreeModel::add(const Chain& chain, PartModel part) {
  const Chain parent(chain.begin(), chain.end() - 1);
  parts_.at(parent).children.push_back(chain.back());
  parts_.emplace(chain, std::move(part));
}

void TreeModel::remove(const Chain& chain) {
  const Chain parent(chain.begin(), chain.end() - 1);
  std::erase(parts_.at(parent).children, chain.back());
  std::erase_if(parts_, [&chain](const auto& entry) {
    return entry.first.size() >= chain.size() &&
           std::equal(chain.begin(), chain.end(), entry.first.begin());
  });
}

std::string textOf(const Chain& chain) {
  if (chain.empty())
    return "-";
  std::string text;
  for (const ModelPartId id : chain)
    text += (text.empty() ? "" : "/") + std::to_string(id);
  return text;
}

Chain chainOf(const std::string& text) {
  Chain chain;
  if (text == "-")
    return chain;
  std::istringstream in(text);
  for (std::string id; std::getline(in, id, '/');)
    chain.push_back(static_cast<ModelPartId>(std::stoul(id)));
  return chain;
}

}  // namespace promise
