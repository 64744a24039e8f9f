#include "model/discovery.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>

#include "shell/paths.h"

namespace treescope {

namespace {

constexpr std::string_view pipeExtensions[] = {".fifo", ".efifo"};
constexpr std::size_t maxPortName = 200;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

std::optional<std::string> withoutPipeExtension(const std::string& fileName) {
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string::npos) {
    return std::nullopt;
  }
  for (const std::string_view extension : pipeExtensions) {
    if (std::string_view(fileName).substr(dot) == extension) {
      return fileName.substr(0, dot);
    }
  }
  return std::nullopt;
}

/// The event ports' rule for names. Anyone may create a file in the directory, so its
/// name may hold what would act on a terminal or end a command.
bool isPortName(std::string_view name) {
  const auto isAllowed = [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 && byte != 0x7F && character != '/' && character != ';';
  };
  return !name.empty() && name.size() <= maxPortName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isAllowed);
}

bool isPlainEntry(std::string dir, std::string_view fileName) {
  appendComponent(dir, fileName);
  struct stat status {};
  return stat(dir.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

DIR* openDirectory(const char* path) {
  DIR* directory = opendir(path);
  while (directory == nullptr && errno == EINTR) {
    directory = opendir(path);
  }
  return directory;
}

template <typename Visit>
int scanDirectory(const char* dir, const char* key, Visit visit) {
  const std::unique_ptr<DIR, CloseDirectory> directory(openDirectory(dir));
  if (directory == nullptr) {
    return 0;
  }
  while (const dirent* entry = readdir(directory.get())) {
    const std::string fileName = entry->d_name;
    const auto name = withoutPipeExtension(fileName);
    if (name && isPortName(*name) && (key == nullptr || name->find(key) != std::string::npos) &&
        isPlainEntry(dir, fileName)) {
      visit(*name);
    }
  }
  return 1;
}

}  // namespace

int collectServerNames(std::vector<std::string>& out, const char* dir, const char* key) {
  return scanDirectory(dir, key, [&out](const std::string& name) { out.push_back(name); });
}

int listServerNodes(ListingNode& node, const char* dir, const char* key) {
  const auto addListed = [&node](const std::string& name) {
    if (isListedServerName(name)) {
      node.addChild().name = name;
    }
  };
  const int read = scanDirectory(dir, key, addListed);
  if (read == 1) {
    node.name = dir;
  }
  return read;
}

bool isListedServerName(std::string_view name) {
  if (name.starts_with("Model_")) {
    return true;
  }
  const std::size_t dot = name.rfind('.');
  return dot != std::string_view::npos && name.substr(dot) == ".Model";
}

}  // namespace treescope
