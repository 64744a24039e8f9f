#include "shell/word_tree.h"

#include <regex.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "shell/paths.h"
#include "shell/words.h"

namespace treescope {

namespace {

// regcomp(3) recurses with the nesting of an expression, and copies what a "\{n\}"
// repeats; nested repetitions multiply.
constexpr std::size_t maxPatternLength = 4096;
constexpr std::size_t maxCopies = 100'000;

/// A compiled regular expression. A pattern that regcomp(3) rejects is left
/// uncompiled.
class Expression {
 public:
  explicit Expression(const std::string& text)
      : compiled_(regcomp(&expression_, text.c_str(), REG_NEWLINE) == 0) {}
  ~Expression() {
    if (compiled_) {
      regfree(&expression_);
    }
  }
  Expression(const Expression&) = delete;
  Expression& operator=(const Expression&) = delete;

  [[nodiscard]] bool compiled() const { return compiled_; }

  [[nodiscard]] bool matchesWhole(const std::string& path) const {
    regmatch_t span{};
    return regexec(&expression_, path.c_str(), 1, &span, 0) == 0 && span.rm_so == 0 &&
           static_cast<std::size_t>(span.rm_eo) == path.size();
  }

 private:
  regex_t expression_{};
  bool compiled_;
};

// The larger number of a repetition's "m,n", whose digits begin at `offset`.
std::size_t copiesAt(std::string_view pattern, std::size_t offset) {
  std::size_t largest = 1;
  std::size_t number = 0;
  for (const char c : pattern.substr(offset)) {
    if (c != ',' && std::isdigit(static_cast<unsigned char>(c)) == 0) {
      break;
    }
    // One more than the limit is as good as any larger number, and cannot overflow.
    number =
        c == ',' ? 0 : std::min(number * 10 + static_cast<std::size_t>(c - '0'), maxCopies + 1);
    largest = std::max(largest, number);
  }
  return largest;
}

bool isWithinLimits(std::string_view pattern) {
  constexpr std::string_view opening = "\\{";
  std::size_t copies = 1;
  for (std::size_t offset = pattern.find(opening);
       offset != std::string_view::npos && copies <= maxCopies;
       offset = pattern.find(opening, offset)) {
    offset += opening.size();
    copies *= copiesAt(pattern, offset);
  }
  return copies <= maxCopies && pattern.size() <= maxPatternLength;
}

std::string expressionText(const char* pattern) {
  std::string text;
  for (const char c : std::string_view(pattern)) {
    if (c == '*') {
      text += '.';
    }
    text += c;
  }
  return text;
}

struct PathOfNode {
  std::string path;
  const WordNode* node;
};

std::vector<PathOfNode> nextLevel(const std::vector<PathOfNode>& level) {
  std::vector<PathOfNode> below;
  for (const PathOfNode& parent : level) {
    for (const std::unique_ptr<WordNode>& child : parent.node->children) {
      below.push_back({parent.path, child.get()});
      appendComponent(below.back().path, child->name);
    }
  }
  return below;
}

std::vector<PathOfNode> nodesAtDepth(const WordNode& root, std::size_t depth) {
  std::vector<PathOfNode> level;
  for (const std::unique_ptr<WordNode>& child : root.children) {
    level.push_back({child->name, child.get()});
  }
  for (std::size_t reached = 1; reached < depth && !level.empty(); ++reached) {
    level = nextLevel(level);
  }
  return level;
}

}  // namespace

WordNode::~WordNode() {
  std::vector<std::unique_ptr<WordNode>> pending = std::move(children);
  while (!pending.empty()) {
    const std::unique_ptr<WordNode> node = std::move(pending.back());
    pending.pop_back();
    std::move(node->children.begin(), node->children.end(), std::back_inserter(pending));
    node->children.clear();
  }
}

WordNode& WordNode::add(std::string childName) {
  children.push_back(std::make_unique<WordNode>());
  children.back()->name = std::move(childName);
  return *children.back();
}

WordNode& WordNode::at(const std::vector<std::string>& path) {
  WordNode* node = this;
  for (const std::string& component : path) {
    const auto found = std::find_if(
        node->children.begin(), node->children.end(),
        [&component](const std::unique_ptr<WordNode>& child) { return child->name == component; });
    node = found == node->children.end() ? &node->add(component) : found->get();
  }
  return *node;
}

void WordNode::setChildren(const std::vector<std::string>& names) {
  std::unordered_map<std::string, std::unique_ptr<WordNode>> before;
  for (std::unique_ptr<WordNode>& child : children) {
    before.try_emplace(child->name, std::move(child));
  }
  children.clear();
  for (const std::string& childName : names) {
    // The slot is null if the name is already among the children.
    const auto [slot, isNew] = before.try_emplace(childName);
    if (isNew) {
      add(childName);
    } else if (slot->second != nullptr) {
      children.push_back(std::move(slot->second));
    }
  }
}

std::vector<std::string> matchingPaths(const WordNode& root, const char* pattern) {
  std::vector<std::string> matches;
  if (!isWithinLimits(pattern)) {
    return matches;
  }
  const Expression expression(expressionText(pattern));
  if (!expression.compiled()) {
    return matches;
  }
  std::vector<std::string> components;
  splitAtSeparator(pattern, components, '/');
  for (PathOfNode& found : nodesAtDepth(root, components.size())) {
    if (expression.matchesWhole(found.path)) {
      matches.push_back(std::move(found.path));
    }
  }
  return matches;
}

}  // namespace treescope
