#include "commands/save_subtree.h"

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "commands/saved_command.h"
#include "shell/paths.h"

namespace treescope {

namespace {

/// A node that the walk is inside of.
struct Level {
  ChildList children;
  std::size_t next = 0;
};

class SubtreeWalk {
 public:
  SubtreeWalk(TreeScope& scope, NamedChain top, ValuesFile& file)
      : scope_(scope), at_(std::move(top)), file_(file) {}

  void run() {
    visit();
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.next == level.children.size()) {
        levels_.pop_back();
        leave();
        continue;
      }
      at_.append(level.children.id(level.next), level.children.name(level.next));
      ++level.next;
      if (!visit()) {
        leave();
      }
    }
  }

 private:
  /// True when the walk has gone into a node.
  bool visit() {
    std::vector<std::uint16_t> ids;
    if (!scope_.fetchChildIds(at_.ids, ids, true) || ids.empty()) {
      savePart();
      return false;
    }
    std::vector<std::string> names;
    // Without an answer the children have no names.
    static_cast<void>(scope_.fetchChildNames(at_.ids, names, true));
    levels_.push_back({ChildList(std::move(ids), std::move(names))});
    return true;
  }

  void leave() {
    // The top stays; the names of what is below it are as many as the ids.
    if (!levels_.empty()) {
      at_.removeLast();
    }
  }

  void savePart() {
    const std::uint16_t count = scope_.elementSum(at_.ids, true);
    if (count == 0) {
      value_.clear();
      scope_.readValueText(at_.ids, value_, true);
      beginLine();
      appendPath(line_, at_.names);
      endLine();
    }
    for (std::uint16_t element = 0; element < count; ++element) {
      value_.clear();
      scope_.readElementText(at_.ids, value_, element, true);
      beginLine();
      appendSavedElementPath(line_, at_.names, element);
      endLine();
    }
  }

  /// Makes the line of `value_` up to the path, and reports it.
  void beginLine() {
    line_.clear();
    appendSavedCommand(line_, value_);
    trace_ = " make command [";
    trace_ += value_;
    trace_ += "] -> [";
    trace_ += line_;
    trace_ += "]\n";
    static_cast<void>(std::fwrite(trace_.data(), 1, trace_.size(), stdout));
  }

  void endLine() {
    line_ += '\n';
    file_.write(line_);
  }

  TreeScope& scope_;
  NamedChain at_;
  ValuesFile& file_;
  std::vector<Level> levels_;
  // Room for the value, the line and the trace that are being written.
  std::string value_;
  std::string line_;
  std::string trace_;
};

}  // namespace

void saveSubtree(TreeScope& scope, NamedChain top, ValuesFile& file) {
  SubtreeWalk(scope, std::move(top), file).run();
}

}  // namespace treescope
