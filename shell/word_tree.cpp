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

// The system's compiler of expressions recurses with their depth, and writes out
// what a "\{n\}" repeats, nested ones multiplied.
constexpr std::size_t longestPattern = 4096;
constexpr std::size_t mostCopies = 100'000;

/// An expression of regcomp(3); not compiled for a pattern that it rejects.
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

  [[nodiscard]] bool covers(const std::string& path) const {
    regmatch_t span{};
    return regexec(&expression_, path.c_str(), 1, &span, 0) == 0 && span.rm_so == 0 &&
           static_cast<std::size_t>(span.rm_eo) == path.size();
  }

 private:
  regex_t expression_{};
  bool compiled_;
};

// The larger number of a repetition's "m,n", whose digits begin at `at`.
std::size_t copiesAt(std::string_view pattern, std::size_t at) {
  std::size_t largest = 1;
  std::size_t number = 0;
  for (; at < pattern.size() &&
         (std::isdigit(static_cast<unsigned char>(pattern[at])) != 0 || pattern[at] == ',');
       ++at) {
    number =
        pattern[at] == ','
            ? 0
            : std::min(number * 10 + static_cast<std::size_t>(pattern[at] - '0'), mostCopies + 1);
    largest = std::max(largest, number);
  }
  return largest;
}

bool isAffordable(std::string_view pattern) {
  constexpr std::string_view opening = "\\{";
  std::size_t copies = 1;
  for (std::size_t at = pattern.find(opening); at != std::string_view::npos && copies <= mostCopies;
       at = pattern.find(opening, at)) {
    at += opening.size();
    copies *= copiesAt(pattern, at);
  }
  return copies <= mostCopies && pattern.size() <= longestPattern;
}

std::string expressionText(const char* pattern) {
  std::string text;
  for (const char* at = pattern; *at != '\0'; ++at) {
    if (*at == '*') {
      text += '.';
    }
    text += *at;
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
  std::vector<std::unique_ptr<WordNode>> doomed = std::move(children);
  while (!doomed.empty()) {
    const std::unique_ptr<WordNode> node = std::move(doomed.back());
    doomed.pop_back();
    std::move(node->children.begin(), node->children.end(), std::back_inserter(doomed));
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
  for (const std::string& wanted : path) {
    const auto found = std::find_if(
        node->children.begin(), node->children.end(),
        [&wanted](const std::unique_ptr<WordNode>& child) { return child->name == wanted; });
    node = found == node->children.end() ? &node->add(wanted) : found->get();
  }
  return *node;
}

void WordNode::setChildren(const std::vector<std::string>& names) {
  std::unordered_map<std::string, std::unique_ptr<WordNode>> before;
  for (std::unique_ptr<WordNode>& child : children) {
    before.try_emplace(child->name, std::move(child));
  }
  children.clear();
  for (const std::string& wanted : names) {
    const auto [slot, isNew] = before.try_emplace(wanted);
    if (isNew) {
      add(wanted);
    } else if (slot->second != nullptr) {
      children.push_back(std::move(slot->second));
    }
  }
}

std::vector<std::string> matchingPaths(const WordNode& root, const char* pattern) {
  std::vector<std::string> matches;
  if (!isAffordable(pattern)) {
    return matches;
  }
  const Expression expression(expressionText(pattern));
  if (!expression.compiled()) {
    return matches;
  }
  std::vector<std::string> components;
  splitAtSeparator(pattern, components, '/');
  for (PathOfNode& found : nodesAtDepth(root, components.size())) {
    if (expression.covers(found.path)) {
      matches.push_back(std::move(found.path));
    }
  }
  return matches;
}

}  // namespace treescope
