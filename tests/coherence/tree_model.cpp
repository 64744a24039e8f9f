#include "tests/coherence/tree_model.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace coherence {

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
    if (named) {
      part.elementNames.push_back("n" + std::to_string(i));
    }
  }
  return part;
}

PartModel varying(std::string name, PartClass partClass, std::vector<std::string> texts) {
  PartModel part{.name = std::move(name), .partClass = partClass};
  part.setTexts(std::move(texts));
  return part;
}

PartModel hidingNode(std::string name, PartClass partClass) {
  return {.name = std::move(name), .isNode = true, .partClass = partClass};
}

Chain childOf(Chain chain, ModelPartId id) {
  chain.push_back(id);
  return chain;
}

}  // namespace

void PartModel::setTexts(std::vector<std::string> texts) {
  values = std::move(texts);
  isArray = values.size() > 1;
  elementNames.clear();
  if (values.size() % 2 == 0) {
    for (const std::string& text : values) {
      elementNames.push_back("of " + text);
    }
  }
}

std::string PartModel::text() const {
  std::string all;
  for (const std::string& value : values) {
    all += (&value == values.data() ? "" : "\n") + value;
  }
  return all;
}

TreeModel TreeModel::initial() {
  TreeModel tree;
  for (const ModelPartId group : {ModelPartId{3}, ModelPartId{1}, ModelPartId{7}}) {
    const Chain at{group};
    tree.add(at, node("group" + std::to_string(group)));
    for (ModelPartId id = 0; id < 5; ++id) {
      tree.add(childOf(at, id), value("value" + std::to_string(id), "0"));
    }
    tree.add(childOf(at, 8), array("named", 3, true));
    tree.add(childOf(at, 6), array("unnamed", 1 + group, false));
    tree.add(childOf(at, 5), value("", "unnamed"));
    tree.add(childOf(at, 11), varying("varying", PartClass::cacheable, {"a", "b"}));
    tree.add(childOf(at, 10), varying("uncacheable", PartClass::uncacheable, {"c"}));
    for (const PartClass partClass : {PartClass::cacheable, PartClass::uncacheable}) {
      const Chain hiding = childOf(at, partClass == PartClass::cacheable ? 13 : 12);
      tree.add(hiding, hidingNode("hiding", partClass));
      for (ModelPartId id = 0; id < 3; ++id) {
        tree.add(childOf(hiding, id), value("inner" + std::to_string(id), "in"));
      }
      tree.add(childOf(hiding, 3), varying("inner", PartClass::cacheable, {"x", "y", "z"}));
    }
  }
  tree.add({9}, node("wide"));
  for (ModelPartId id = 0; id < 400; ++id) {
    const std::string number = std::to_string(id);
    tree.add({9, id}, id % 8 == 5 ? varying("o" + number, PartClass::cacheable, {number, number})
                                  : value("w" + number, number));
  }
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

bool TreeModel::contains(const Chain& chain) const {
  if (!parts_.contains(chain)) {
    return false;
  }
  for (Chain above = chain; !above.empty();) {
    above.pop_back();
    if (parts_.at(above).isHiding) {
      return false;
    }
  }
  return true;
}

const std::vector<ModelPartId>& TreeModel::children(const Chain& chain) const {
  static const std::vector<ModelPartId> none;
  const PartModel& part = at(chain);
  return part.isHiding ? none : part.children;
}

void TreeModel::add(const Chain& chain, PartModel part) {
  const Chain parent(chain.begin(), chain.end() - 1);
  parts_.at(parent).children.push_back(chain.back());
  parts_.emplace(chain, std::move(part));
}

void TreeModel::add(const Chain& chain, const std::string& kind, std::string name) {
  if (kind == "node") {
    return add(chain, node(std::move(name)));
  }
  if (kind == "value") {
    return add(chain, value(std::move(name), "new"));
  }
  if (kind == "array") {
    return add(chain, array(std::move(name), 2, false));
  }
  if (kind == "varying") {
    return add(chain, varying(std::move(name), PartClass::cacheable, {"new", "varying"}));
  }
  add(chain, hidingNode(std::move(name), PartClass::cacheable));
  if (kind == "hidden") {
    parts_.at(chain).isHiding = true;
    add(childOf(chain, 2), node("inner"));
    add(childOf(childOf(chain, 2), 1), value("hidden", "new"));
  }
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
  if (chain.empty()) {
    return "-";
  }
  std::string text;
  for (const ModelPartId id : chain) {
    text += (text.empty() ? "" : "/") + std::to_string(id);
  }
  return text;
}

Chain chainOf(const std::string& text) {
  Chain chain;
  if (text == "-") {
    return chain;
  }
  std::istringstream in(text);
  for (std::string id; std::getline(in, id, '/');) {
    chain.push_back(static_cast<ModelPartId>(std::stoul(id)));
  }
  return chain;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines{""};
  for (const char letter : text) {
    if (letter == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += letter;
    }
  }
  return lines;
}

}  // namespace coherence
