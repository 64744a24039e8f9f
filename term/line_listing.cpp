#include "term/line_listing.h"

#include <string>
#include <vector>

#include "term/column_listing.h"
#include "term/listing_text.h"

namespace treescope {

namespace {

/// Makes one line after the other, in the same memory, and prints it.
class LineWriter {
 public:
  LineWriter(ScreenPrinter& printer, bool paging) : printer_(printer), paging_(paging) {}

  /// Begins a line with the branch of a tree, `depth` levels in.
  void beginBranch(std::size_t depth) {
    line_.assign(depth * treeIndentation.size(), ' ');
    line_ += treeBranch;
  }

  void begin() { line_.clear(); }

  void addName(const ListingNode& node) { line_ += nameText(node.name); }

  void addPaddedName(const ListingNode& node, std::size_t width) {
    const std::size_t end = line_.size() + width;
    addName(node);
    line_.resize(end, ' ');
  }

  void addPaddedNodeName(const ListingNode& node, std::size_t width) {
    const std::size_t end = line_.size() + width;
    addName(node);
    line_ += '/';
    line_.resize(end, ' ');
  }

  void add(std::string_view text) { line_ += text; }

  void addValue(const ListingNode& node) { appendValueText(line_, node.value); }

  /// Prints the line with the marks of `node`.
  bool print(const ListingNode& node) {
    return printer_.printLine({node.subscribedMark, node.kindMark, line_.c_str()}, paging_);
  }

 private:
  ScreenPrinter& printer_;
  const bool paging_;
  std::string line_;
};

/// A node whose children are being drawn.
struct OpenLevel {
  const ListingNode* node;
  std::size_t nextChild;
  std::size_t width;
};

bool drawNodeName(LineWriter& lines, std::size_t depth, const ListingNode& node) {
  lines.beginBranch(depth);
  lines.addName(node);
  lines.add("/");
  return lines.print(node);
}

bool drawLevel(LineWriter& lines, std::size_t depth, const ListingNode& node, bool withValues) {
  if (!drawNodeName(lines, depth, node)) {
    return false;
  }
  std::vector<OpenLevel> open = {{&node, 0, nodeColumnWidth(node)}};
  while (!open.empty()) {
    OpenLevel& level = open.back();
    if (level.nextChild == level.node->children.size()) {
      open.pop_back();
      continue;
    }
    const ListingNode& child = *level.node->children[level.nextChild++];
    const std::size_t childDepth = depth + open.size();
    if (child.hasChildren()) {
      if (!drawNodeName(lines, childDepth, child)) {
        return false;
      }
      open.push_back({&child, 0, nodeColumnWidth(child)});
      continue;
    }
    lines.beginBranch(childDepth);
    lines.addPaddedName(child, level.width);
    if (withValues) {
      lines.addValue(child);
    }
    if (!lines.print(child)) {
      return false;
    }
  }
  return true;
}

bool drawTree(ScreenPrinter& printer, const ListingNode& node, bool withValues, bool reset,
              bool paging) {
  if (reset) {
    printer.resetCount();
  }
  const std::size_t width = nodeColumnWidth(node);
  LineWriter lines(printer, paging);
  for (const auto& child : node.children) {
    if (child->hasChildren()) {
      if (!drawLevel(lines, 0, *child, withValues)) {
        return false;
      }
      continue;
    }
    lines.beginBranch(0);
    if (withValues) {
      lines.addPaddedName(*child, width);
      lines.addValue(*child);
    } else {
      lines.addName(*child);
    }
    if (!lines.print(*child)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool printLongList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging) {
  if (reset) {
    printer.resetCount();
  }
  LineWriter lines(printer, paging);
  if (!node.hasChildren()) {
    lines.begin();
    lines.addName(node);
    lines.add(treeIndentation);
    lines.addValue(node);
    return lines.print(node);
  }
  const std::size_t width = nodeColumnWidth(node);
  for (const auto& child : node.children) {
    lines.begin();
    if (child->hasChildren()) {
      lines.addPaddedNodeName(*child, width);
    } else {
      lines.addPaddedName(*child, width);
      lines.addValue(*child);
    }
    if (!lines.print(*child)) {
      return false;
    }
  }
  return true;
}

bool printTreeList(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging) {
  return drawTree(printer, node, false, reset, paging);
}

bool printLongTree(ScreenPrinter& printer, const ListingNode& node, bool reset, bool paging) {
  return drawTree(printer, node, true, reset, paging);
}

bool printTreeLevel(ScreenPrinter& printer, std::size_t depth, const ListingNode& node,
                    bool withValues, bool paging) {
  LineWriter lines(printer, paging);
  return drawLevel(lines, depth, node, withValues);
}

}  // namespace treescope
