#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/programs.h"

// The sources keep to the layout that ARCHITECTURE.md draws.

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

/// What `file` includes in quotes.
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

const std::set<std::string> platformParts{"kstd", "utilsrv", "evtsrv", "modelsrv"};

/// What the files of a folder may include of the others.
const std::map<std::string, std::set<std::string>>& allowedFolders() {
  static const std::map<std::string, std::set<std::string>> allowed{
      {"platform", {}},
      {"term", {"term"}},
      {"shell", {"shell", "term"}},
      {"model", {"model", "shell", "term"}},
      {"commands", {"commands", "model", "shell", "term"}},
      {"servers", {"servers"}},
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
        continue;  // Belongs to the executable, above all folders.
      }
      for (const std::string& include : ownIncludes(file)) {
        const std::string from = firstComponent(include);
        EXPECT_TRUE(allowed.count(from) == 1 || platformParts.count(from) == 1)
            << file << " includes " << include;
      }
    }
  }
}

TEST(Layout, NobodyButThePlatformLooksBehindItsPublicHeaders) {
  for (const char* const folder : {"term", "shell", "model", "commands", "servers"}) {
    for (const fs::path& file : sourcesIn(folder)) {
      for (const std::string& include : ownIncludes(file)) {
        EXPECT_EQ(include.find("/source/"), std::string::npos) << file << " includes " << include;
      }
    }
  }
}

TEST(Layout, PlatformPartsIncludeThoseBelowThem) {
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

TEST(Layout, TheTerminalKnowsNothingOfEventsAndModels) {
  for (const fs::path& file : sourcesIn("term")) {
    for (const std::string& include : ownIncludes(file)) {
      const std::string from = firstComponent(include);
      EXPECT_TRUE(from != "evtsrv" && from != "modelsrv") << file << " includes " << include;
    }
  }
}

TEST(Layout, NoFileIsLongerThanFourHundredLines) {
  for (const char* const folder : {"platform", "term", "shell", "model", "commands", "servers",
                                   "tests", "bench", "examples"}) {
    for (const fs::path& file : sourcesIn(folder)) {
      EXPECT_LE(linesOf(top() / file).size(), 400U) << file;
    }
  }
}

TEST(Layout, EverySourceIsBuilt) {
  for (const char* const folder : {"platform", "term", "shell", "model", "commands", "servers",
                                   "tests", "bench", "examples"}) {
    for (const fs::path& file : sourcesIn(folder)) {
      if (file.extension() != ".cpp") {
        continue;
      }
      bool named = false;
      std::string path = file.filename().string();
      // Named by the nearest list above it, with its path from there.
      for (fs::path at = file.parent_path(); !named; at = at.parent_path()) {
        if (fs::exists(top() / at / "CMakeLists.txt")) {
          const Lines lines = linesOf(top() / at / "CMakeLists.txt");
          const std::regex word(
              "(.*[\\s(])?" + std::regex_replace(path, std::regex("[.+]"), "\\$&") + "([\\s)].*)?");
          named = std::any_of(lines.begin(), lines.end(), [&word](const std::string& line) {
            return std::regex_match(line, word);
          });
        }
        if (at.empty()) {
          break;
        }
        path = at.filename().string() + "/" + path;
      }
      EXPECT_TRUE(named) << file << " is in no list of sources";
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

TEST(Layout, TestsWaitForEventsAndNeverSleep) {
  const std::regex sleep("\\b(sleep_for|sleep_until|usleep|nanosleep)\\s*\\(");
  for (const fs::path& file : sourcesIn("tests")) {
    for (const std::string& line : linesOf(top() / file)) {
      EXPECT_FALSE(std::regex_search(line, sleep)) << file << ": " << line;
    }
  }
}

}  // namespace
