#include "shell/command_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace treescope {

namespace {

constexpr std::size_t bufferSize = 4096;
constexpr int endOfFile = -1;

int openToRead(const char* fileName) {
  int descriptor = -1;
  do {
    descriptor = open(fileName, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (descriptor == -1 && errno == EINTR);
  return descriptor;
}

/// Waits until a pipe has data, or had a writer that has closed it. Signals are
/// delivered meanwhile.
bool waitForWriter(int descriptor) {
  pollfd pipe{descriptor, POLLIN, 0};
  int count = poll(&pipe, 1, -1);
  while (count == -1 && errno == EINTR) {
    count = poll(&pipe, 1, -1);
  }
  return count == 1;
}

// False for a directory. The file was opened non-blocking, because opening some devices
// would otherwise wait; reading blocks again. Without a writer a named pipe would then
// be at its end, so its first writer is awaited here.
bool makeReadable(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
    return false;
  }
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0 &&
         (!S_ISFIFO(status.st_mode) || waitForWriter(descriptor));
}

}  // namespace

CommandFile::CommandFile(const char* fileName) : descriptor_(openToRead(fileName)) {
  if (opened() && !makeReadable(descriptor_)) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

CommandFile::~CommandFile() {
  if (opened()) {
    close(descriptor_);
  }
}

std::string CommandFile::nextLine() {
  std::string line;
  if (cut_) {
    ended_ = true;
    return line;
  }
  for (int byte = nextByte(); byte != '\n'; byte = nextByte()) {
    if (byte == endOfFile) {
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

void CommandFile::releaseBuffer() {
  buffer_ = std::string(buffer_, position_);
  position_ = 0;
}

int CommandFile::nextByte() {
  if (position_ == buffer_.size() && !fillBuffer()) {
    return endOfFile;
  }
  return static_cast<unsigned char>(buffer_[position_++]);
}

bool CommandFile::fillBuffer() {
  position_ = 0;
  buffer_.resize(bufferSize);
  ssize_t count = read(descriptor_, buffer_.data(), buffer_.size());
  while (count == -1 && errno == EINTR) {
    count = read(descriptor_, buffer_.data(), buffer_.size());
  }
  buffer_.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return count > 0;
}

}  // namespace treescope
