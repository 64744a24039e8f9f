#pragma once

#include <string>
#include <utility>
#include <vector>

#include "gateway/exporter/served_tree.h"

namespace gateway_test {

inline modelgate::ShapePart node(unsigned depth, unsigned short id, std::string name) {
  modelgate::ShapePart part;
  part.depth = depth;
  part.id = id;
  part.name = std::move(name);
  part.type = "node";
  return part;
}

inline modelgate::ShapePart value(unsigned depth, unsigned short id, std::string name,
                                  std::string type, unsigned elements = 0,
                                  std::vector<std::string> names = {}) {
  modelgate::ShapePart part = node(depth, id, std::move(name));
  part.type = std::move(type);
  part.access = ModelSrv::ModelPartStatus_ReadWrite;
  part.elements = elements;
  part.elementNames = std::move(names);
  return part;
}

/// Positions:
///
///     0  /cpu           1      node
///     1  /cpu/load      1.7    float
///     2  /cpu/cores     1.8    uint32 array a, b, c
///     3  /cpu/deep      1.9    node
///     4  /cpu/deep/x    1.9.1  text
///     5  /name          2      text
///     6  /<unnamed>     3      bool
///     7  /notes         4      text array of 2
///     8  /empty         5      node
inline modelgate::Shape sampleShape() {
  return {node(1, 1, "cpu"),
          value(2, 7, "load", "float"),
          value(2, 8, "cores", "uint32", 3, {"a", "b", "c"}),
          node(2, 9, "deep"),
          value(3, 1, "x", "text"),
          value(1, 2, "name", "text"),
          value(1, 3, "", "bool"),
          value(1, 4, "notes", "text", 2),
          node(1, 5, "empty")};
}

inline std::shared_ptr<modelgate::ServedTree> sampleTree() {
  return std::make_shared<modelgate::ServedTree>(sampleShape(),
                                                 modelgate::encodeShape(sampleShape()));
}

}  // namespace gateway_test
