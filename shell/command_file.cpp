#include "shell/command_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace treescope {

namespace {

// False for a directory. The file was opened non-blocking, because opening a named
// pipe would otherwise wait for a writer; reading blocks again.
bool makeReadable(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
    return false;
  }
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

}  // namespace

CommandFile::CommandFile(const char* fileName) {
  const int descriptor = open(fileName, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (descriptor == -1) {
    return;
  }
  if (makeReadable(descriptor)) {
    stream_.reset(fdopen(descriptor, "r"));
  }
  if (stream_ == nullptr) {
    close(descriptor);
  }
}

std::string CommandFile::nextLine() {
  std::string line;
  if (cut_) {
    ended_ = true;
    return line;
  }
  for (int byte = std::getc(stream_.get()); byte != '\n'; byte = std::getc(stream_.get())) {
    if (byte == EOF) {
      ended_ = true;
      break;
    }
    if (line.size() == maxLineLength) {
      cut_ = true;
      break;
    }
    line.push_back(static_cast<char>(byte));
  }
  return line;
}

}  // namespace treescope
