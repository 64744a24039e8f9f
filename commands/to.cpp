#include <string>
#include <utility>
#include <vector>

#include "commands/target_address.h"
#include "commands/tree_scope.h"
#include "commands/value_text.h"
#include "commands/values_file.h"
#include "model/memory_budget.h"
#include "shell/results.h"
#include "term/shown_text.h"
#include "term/standard_output.h"

namespace treescope {

namespace {

/// A node whose children are being written.
struct Level {
  ChildList children;
  std::size_t memory;  ///< of the list
  std::size_t next = 0;
};

/// Writes one command for every value at and below a part, depth first and in the
/// server's order: one for a part, one for each element of an array. A node without
/// children counts as a part, and a value that cannot be read is written as an empty
/// one. Reports each command on standard output.
///
/// The nodes on the way to the current part are kept in a list: a recursive function
/// would overflow the stack on a deep tree.
class SubtreeWriter {
 public:
  /// `top` holds the names with which the written paths begin; it may have fewer
  /// names than ids.
  SubtreeWriter(ModelClient& client, NamedChain top, ValuesFile& file)
      : client_(client), current_(std::move(top)), file_(file) {}

  /// Returns false if the nodes above a part take too much memory; the file then ends there.
  bool run() {
    visit();
    while (!levels_.empty() && !budget_.exhausted()) {
      Level& level = levels_.back();
      if (level.next == level.children.size()) {
        budget_.putBack(level.memory);
        levels_.pop_back();
        leave();
        continue;
      }
      current_.append(level.children.id(level.next), level.children.name(level.next));
      ++level.next;
      if (!visit()) {
        leave();
      }
    }
    return !budget_.exhausted();
  }

 private:
  /// Writes the current part, or enters the current node and returns true.
  bool visit() {
    std::vector<std::uint16_t> ids;
    if (!client_.fetchChildIds(current_.ids, ids, true) || ids.empty()) {
      writePart();
      return false;
    }
    std::vector<std::string> names;
    // If this request fails, the children have no names.
    static_cast<void>(client_.fetchChildNames(current_.ids, names, true));
    ChildList children(std::move(ids), std::move(names));
    const std::size_t memory = children.memory();
    if (budget_.take(memory)) {
      levels_.push_back({std::move(children), memory});
    }
    return true;
  }

  void leave() {
    // The top stays. Below it every id has a name.
    if (!levels_.empty()) {
      current_.removeLast();
    }
  }

  void writePart() {
    const std::uint16_t count = client_.elementSum(current_.ids, true);
    if (count == 0) {
      value_.clear();
      client_.readValueText(current_.ids, value_, true);
      beginLine();
      appendSavedPath(line_, current_.names);
      endLine();
    }
    for (std::uint16_t element = 0; element < count; ++element) {
      value_.clear();
      client_.readElementText(current_.ids, value_, element, true);
      beginLine();
      appendSavedElementPath(line_, current_.names, element);
      endLine();
    }
  }

  /// Starts the command of `value_`, up to the path, and reports it.
  void beginLine() {
    line_.clear();
    appendSavedCommand(line_, value_);
    trace_ = " make command [";
    appendShown(trace_, value_);
    trace_ += "] -> [";
    appendShown(trace_, line_);
    trace_ += "]\n";
    printText(trace_);
  }

  void endLine() {
    line_ += '\n';
    file_.write(line_);
  }

  ModelClient& client_;
  NamedChain current_;
  ValuesFile& file_;
  std::vector<Level> levels_;
  MemoryBudget budget_;
  // Reused for every value.
  std::string value_;
  std::string line_;
  std::string trace_;
};

}  // namespace

int TreeScope::doTo(const char* file, const char* path) {
  if (!connected()) {
    return result::nothing;
  }
  ValuesFile values(file == nullptr ? "" : file);
  if (!values.opened()) {
    return result::openFileError;
  }
  const SplitPath split = splitAtLastSlash(expandPath(path));
  auto parent = resolveParent(*this, split.parent);
  if (!parent) {
    return result::nothing;
  }
  if (!split.last.empty()) {
    const auto child = parent->children.findName(split.last);
    if (!child) {
      return result::success;
    }
    // The paths that are written leave the named child out. Saved files and the
    // programs that read them rely on it.
    parent->chain.ids.push_back(parent->children.id(*child));
  }
  const bool isWhole = SubtreeWriter(*this, std::move(parent->chain), values).run();
  return isWhole ? result::success : result::outOfMemory;
}

}  // namespace treescope
