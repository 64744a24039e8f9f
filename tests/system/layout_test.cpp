#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/process.h"

// The sources follow the layout that ARCHITECTURE.md describes.

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const fs::path& top() {
  static const fs::path path = test_support::sourceDirectory();
  return path;
}

Lines linesOf(const fs::path& file) {
  std::ifstream in(file);
  Lines lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// Every C++ file below `folder`, as a path from the top.
std::vector<fs::path> sourcesIn(const std::string& folder) {
  std::vector<fs::path> result;
  if (!fs::exists(top() / folder)) {
    return result;
  }
  for (const auto& entry : fs::recursive_directory_iterator(top() / folder)) {
    const fs::path extension = entry.path().extension();
    if (extension == ".cpp" || extension == ".h") {
      result.push_back(fs::relative(entry.path(), top()));
    }
  }
  std::sort(result.begin(), result.end());
  return result;
}

/// The paths that `file` includes in quotes.
Lines ownIncludes(const fs::path& file) {
  static const std::regex include("^\\s*#\\s*include\\s*\"([^\"]+)\".*");
  Lines result;
  for (const std::string& line : linesOf(top() / file)) {
    std::smatch match;
    if (std::regex_match(line, match, include)) {
      result.push_back(match[1]);
    }
  }
  return result;
}

constexpr std::array codeFolders{"platform", "bindings", "term",    "shell", "model", "commands",
                                 "servers",  "tools",    "gateway", "tests", "bench"};

const std::set<std::string> platformParts{"kstd", "utilsrv", "evtsrv", "modelsrv"};

/// The folders whose headers the files of a folder may include.
const std::map<std::string, std::set<std::string>>& allowedFolders() {
  static const std::map<std::string, std::set<std::string>> allowed{
      {"platform", {}},
      {"bindings", {"bindings", "treescope.h"}},
      {"term", {"term"}},
      {"shell", {"shell", "term"}},
      {"model", {"model", "shell", "term"}},
      {"commands", {"commands", "model", "shell", "term"}},
      {"servers", {"servers"}},
      {"tools", {"tools"}},
      {"gateway", {"gateway"}},
  };
  return allowed;
}

std::string firstComponent(const std::string& include) {
  return include.substr(0, include.find('/'));
}

TEST(Layout, IncludesPointOneWayBetweenFolders) {
  for (const auto& [folder, allowed] : allowedFolders()) {
    const auto sources = sourcesIn(folder);
    EXPECT_FALSE(sources.empty()) << folder;
    for (const fs::path& file : sources) {
      if (file == "shell/main.cpp") {
        continue;  // Part of the executable, above all folders.
      }
      for (const std::string& include : ownIncludes(file)) {
        const std::string from = firstComponent(include);
        EXPECT_TRUE(allowed.count(from) == 1 || platformParts.count(from) == 1)
            << file << " includes " << include;
      }
    }
  }
}

TEST(Layout, OnlyThePlatformIncludesItsInternalHeaders) {
  for (const char* const folder :
       {"bindings", "term", "shell", "model", "commands", "servers", "tools", "gateway"}) {
    for (const fs::path& file : sourcesIn(folder)) {
      for (const std::string& include : ownIncludes(file)) {
        const bool isOwn = firstComponent(include) == folder;
        EXPECT_TRUE(isOwn || include.find("/source/") == std::string::npos)
            << file << " includes " << include;
      }
    }
  }
}

TEST(Layout, PlatformPartsIncludeLowerPartsOnly) {
  const std::map<std::string, std::set<std::string>> below{
      {"kstd", {"kstd"}},
      {"utilsrv", {"kstd", "utilsrv"}},
      {"evtsrv", {"kstd", "utilsrv", "evtsrv"}},
      {"modelsrv", platformParts},
  };
  for (const auto& [part, allowed] : below) {
    for (const fs::path& file : sourcesIn("platform/" + part)) {
      for (const std::string& include : ownIncludes(file)) {
        EXPECT_EQ(allowed.count(firstComponent(include)), 1U) << file << " includes " << include;
      }
    }
  }
}

TEST(Layout, TheTerminalIncludesNoEventsAndNoModels) {
  for (const fs::path& file : sourcesIn("term")) {
    for (const std::string& include : ownIncludes(file)) {
      const std::string from = firstComponent(include);
      EXPECT_TRUE(from != "evtsrv" && from != "modelsrv") << file << " includes " << include;
    }
  }
}

TEST(Layout, NoFileIsLongerThanFourHundredLines) {
  for (const char* const folder : {"platform", "bindings", "term", "shell", "model", "commands",
                                   "servers", "tools", "gateway", "tests", "bench", "examples"}) {
    for (const fs::path& file : sourcesIn(folder)) {
      EXPECT_LE(linesOf(top() / file).size(), 400U) << file;
    }
  }
}

/// The sources in the CMakeLists.txt files, as paths from the top.
std::set<fs::path> builtSources() {
  static const std::regex source("[^\\s()\"]+\\.cpp");
  std::set<fs::path> result;
  for (const char* const folder : codeFolders) {
    for (const auto& entry : fs::recursive_directory_iterator(top() / folder)) {
      if (entry.path().filename() != "CMakeLists.txt") {
        continue;
      }
      const fs::path directory = fs::relative(entry.path().parent_path(), top());
      for (const std::string& line : linesOf(entry.path())) {
        for (std::sregex_iterator at(line.begin(), line.end(), source), end; at != end; ++at) {
          result.insert((directory / at->str()).lexically_normal());
        }
      }
    }
  }
  return result;
}

TEST(Layout, EverySourceIsBuilt) {
  std::set<fs::path> built = builtSources();
  built.insert("shell/main.cpp");  // In the top CMakeLists.txt.
  for (const char* const folder : codeFolders) {
    for (const fs::path& file : sourcesIn(folder)) {
      if (file.extension() == ".cpp") {
        EXPECT_EQ(built.count(file), 1U) << file << " is in no list of sources";
      }
    }
  }
}

TEST(Layout, HeadersAreIncludedOnce) {
  for (const auto& [folder, allowed] : allowedFolders()) {
    for (const fs::path& file : sourcesIn(folder)) {
      if (file.extension() == ".h") {
        const Lines lines = linesOf(top() / file);
        EXPECT_NE(std::find(lines.begin(), lines.end(), "#pragma once"), lines.end()) << file;
      }
    }
  }
}

TEST(Layout, NoResultIsDiscardedByACStyleCast) {
  const std::regex cast("\\(void\\)\\s*[^\\s;,){]");
  for (const char* const folder : codeFolders) {
    for (const fs::path& file : sourcesIn(folder)) {
      for (const std::string& line : linesOf(top() / file)) {
        EXPECT_FALSE(std::regex_search(line, cast)) << file << ": " << line;
      }
    }
  }
}

TEST(Layout, TestsWaitForConditionsAndNeverSleep) {
  const std::regex sleep("\\b(sleep_for|sleep_until|usleep|nanosleep)\\s*\\(");
  for (const fs::path& file : sourcesIn("tests")) {
    for (const std::string& line : linesOf(top() / file)) {
      EXPECT_FALSE(std::regex_search(line, sleep)) << file << ": " << line;
    }
  }
}

/// The tests of all suites, as "Suite.Test".
std::set<std::string> testNames() {
  static const std::regex definition(R"(\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\))");
  std::set<std::string> names;
  for (const fs::path& file : sourcesIn("tests")) {
    std::ostringstream all;
    for (const std::string& line : linesOf(top() / file)) {
      all << line << '\n';
    }
    const std::string text = all.str();
    for (std::sregex_iterator at(text.begin(), text.end(), definition), end; at != end; ++at) {
      names.insert((*at)[1].str() + "." + (*at)[2].str());
    }
  }
  return names;
}

/// Whether one of the names begins with `pattern`, or is it. "..." and "*" at the end, and "*"
/// instead of a suite's end, stand for the rest.
bool isNamed(std::string pattern, const std::set<std::string>& names) {
  const std::size_t open = std::min(pattern.find('*'), pattern.find("..."));
  const std::string begin = pattern.substr(0, open);
  const auto found = names.lower_bound(begin);
  return found != names.end() &&
         (open == std::string::npos ? *found == begin : found->compare(0, open, begin) == 0);
}

TEST(Layout, EveryPromiseOfSecurityHasItsTest) {
  static const std::regex quoted("`([^`]+)`");
  const std::set<std::string> names = testNames();
  std::size_t promises = 0;
  std::string section;
  for (const std::string& line : linesOf(top() / "SECURITY.md")) {
    const std::size_t column =
        line.rfind("| ", line.size() - std::min<std::size_t>(line.size(), 3));
    section = line.starts_with("## ") ? line : section;
    const bool isPromise =
        section == "## What is promised" && line.find("| `") != std::string::npos;
    if (!isPromise) {
      continue;
    }
    ++promises;
    std::string suite;
    const std::string tests = line.substr(column);
    for (std::sregex_iterator at(tests.begin(), tests.end(), quoted), end; at != end; ++at) {
      std::string name = (*at)[1];
      if (name.find('/') != std::string::npos) {
        EXPECT_TRUE(fs::exists(top() / (name + ".cpp"))) << name;
        continue;
      }
      if (name.front() == '.') {
        name.insert(0, suite);
      }
      suite = name.substr(0, name.find('.'));
      EXPECT_TRUE(isNamed(name, names)) << name;
    }
  }
  EXPECT_GT(promises, 20U);
}

}  // namespace
