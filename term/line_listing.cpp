#include "term/line_listing.h"

#include <string>
#include <vector>

#include "term/column_listing.h"
#include "term/listing_text.h"
#include "term/output_block.h"

namespace treescope {

namespace {

/// Builds lines one after another and prints them.
class LineWriter {
 public:
  LineWriter(ScreenPrinter& printer, bool paging) : printer_(printer), paging_(paging) {}

  /// Begins the line of `node`, styled by its marks.
  void begin(const ListingNode& node) {
    node_ = &node;
    start_ = text().size();
    printer_.appendLineStart(text(), node.style());
  }

  /// The same, with the branch of a tree, indented by `depth` levels.
  void beginBranch(const ListingNode& node, std::size_t depth) {
    begin(node);
    text().append(depth * treeIndentation.size(), ' ');
    text() += treeBranch;
  }

  void addName() { appendNameText(text(), node_->name); }

  void addPaddedName(std::size_t width) {
    const std::size_t end = text().size() + width;
    addName();
    text().resize(end, ' ');
  }

  void addPaddedNodeName(std::size_t width) {
    const std::size_t end = text().size() + width;
    addName();
    text() += '/';
    text().resize(end, ' ');
  }

  void add(std::string_view text) { block_.text() += text; }

  void addValue() { appendValueText(text(), node_->value); }

  /// Prints the line. Returns false, and drops the line, if the user quit.
  bool print() {
    if (!printer_.countLine(paging_)) {
      text().resize(start_);
      return false;
    }
    printer_.appendLineEnd(text(), node_->style());
    if (paging_) {
      // The pager may stop before the next line: this one must be visible by then.
      block_.flush();
    } else {
      block_.endLine();
    }
    return true;
  }

 private:
  std::string& text() { return block_.text(); }

  ScreenPrinter& printer_;
  const bool paging_;
  OutputBlock block_;
  const ListingNode* node_ = nullptr;  ///< whose line is being built
  std::size_t start_ = 0;              ///< offset of that line in the block
};

/// A node whose children are being drawn.
struct OpenLevel {
  const ListingNode* node;
  std::size_t nextChild;
  std::size_t width;
};

bool drawNodeName(LineWriter& lines, std::size_t depth, const ListingNode& node) {
  lines.beginBranch(node, depth);
  lines.addName();
  lines.add("/");
  return lines.print();
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
    const ListingNode& child = level.node->children[level.nextChild++];
    const std::size_t childDepth = depth + open.size();
    if (child.hasChildren()) {
      if (!drawNodeName(lines, childDepth, child)) {
        return false;
      }
      open.push_back({&child, 0, nodeColumnWidth(child)});
      continue;
    }
    lines.beginBranch(child, childDepth);
    lines.addPaddedName(level.width);
    if (withValues) {
      lines.addValue();
    }
    if (!lines.print()) {
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
  for (const ListingNode& child : node.children) {
    if (child.hasChildren()) {
      if (!drawLevel(lines, 0, child, withValues)) {
        return false;
      }
      continue;
    }
    lines.beginBranch(child, 0);
    if (withValues) {
      lines.addPaddedName(width);
      lines.addValue();
    } else {
      lines.addName();
    }
    if (!lines.print()) {
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
    lines.begin(node);
    lines.addName();
    lines.add(treeIndentation);
    lines.addValue();
    return lines.print();
  }
  const std::size_t width = nodeColumnWidth(node);
  for (const ListingNode& child : node.children) {
    lines.begin(child);
    if (child.hasChildren()) {
      lines.addPaddedNodeName(width);
    } else {
      lines.addPaddedName(width);
      lines.addValue();
    }
    if (!lines.print()) {
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
