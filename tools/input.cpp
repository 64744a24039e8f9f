#include "tools/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tools/output.h"
#include "tools/stop_signals.h"

namespace treectl {

int readAll(int descriptor, std::string& text, std::size_t maxBytes) {
  constexpr std::size_t blockSize = std::size_t{64} * 1024;
  while (text.size() <= maxBytes) {
    const std::size_t size = text.size();
    text.resize(size + blockSize);
    const ssize_t count = ::read(descriptor, text.data() + size, blockSize);
    const int error = errno;
    text.resize(size + static_cast<std::size_t>(count > 0 ? count : 0));
    if (count == 0) {
      return 0;
    }
    if (count < 0 && (error != EINTR || StopSignals::received() != 0)) {
      return error;
    }
  }
  return 0;
}

int readInputFile(const std::string& path, std::string& text) {
  constexpr std::size_t maxBytes = std::size_t{1024} * 1024 * 1024;
  if (path == "-") {
    return readAll(STDIN_FILENO, text, maxBytes);
  }
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) {
    return errno;
  }
  const int error = readAll(descriptor, text, maxBytes);
  ::close(descriptor);
  return error != 0 ? error : text.size() > maxBytes ? EFBIG : 0;
}

}  // namespace treectl
