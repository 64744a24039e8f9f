#include "shell/command_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace treescope {

namespace {

// Non-blocking for the opening alone: that is what a named pipe would wait in.
bool isReadable(int descriptor) {
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
  if (isReadable(descriptor)) {
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
    if (line.size() == longestLine) {
      cut_ = true;
      break;
    }
    line.push_back(static_cast<char>(byte));
  }
  return line;
}

}  // namespace treescope
