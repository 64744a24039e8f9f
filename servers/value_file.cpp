#include "servers/value_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace modelsrvd {

namespace {

/// An open regular file; closes its descriptor.
class OpenValueFile {
 public:
  /// Never opens anything but a regular file: to open a pipe or a device may have effects.
  OpenValueFile(const std::string& path, int mode) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
      code_ = errno;
      return;
    }
    if (!S_ISREG(status.st_mode)) {
      code_ = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
      return;
    }
    descriptor_ = ::open(path.c_str(), mode | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    code_ = descriptor_ < 0 ? errno : 0;
    // Another file may have taken the name in between.
    if (descriptor_ >= 0 && (::fstat(descriptor_, &status_) != 0 || !S_ISREG(status_.st_mode))) {
      code_ = EINVAL;
    }
  }
  ~OpenValueFile() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }
  OpenValueFile(const OpenValueFile&) = delete;
  OpenValueFile& operator=(const OpenValueFile&) = delete;

  [[nodiscard]] int code() const { return code_; }
  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] off_t size() const { return status_.st_size; }

 private:
  int descriptor_ = -1;
  int code_ = 0;
  struct stat status_ {};
};

/// <linux/magic.h> does not have it.
constexpr std::uint32_t configfsMagic = 0x62656570;

constexpr std::initializer_list<std::uint32_t> kernelFileSystems{
    CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, configfsMagic, DEBUGFS_MAGIC,
    PROC_SUPER_MAGIC,   SYSFS_MAGIC,         TRACEFS_MAGIC};
constexpr std::initializer_list<std::uint32_t> remoteFileSystems{
    AFS_FS_MAGIC,    AFS_SUPER_MAGIC, CEPH_SUPER_MAGIC, CIFS_SUPER_MAGIC, FUSE_SUPER_MAGIC,
    NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, SMB2_SUPER_MAGIC, V9FS_MAGIC};

/// 0 if it cannot be found out.
std::uint32_t fileSystemOf(const std::string& path) {
  struct statfs status {};
  return ::statfs(path.c_str(), &status) == 0 ? static_cast<std::uint32_t>(status.f_type) : 0;
}

bool isOneOf(std::initializer_list<std::uint32_t> fileSystems, const std::string& path) {
  const std::uint32_t type = fileSystemOf(path);
  return std::find(fileSystems.begin(), fileSystems.end(), type) != fileSystems.end();
}

}  // namespace

ModelSrv::ModelRes readValueFile(const std::string& path, std::string& text) {
  const OpenValueFile file(path, O_RDONLY);
  if (file.code() != 0) {
    return ModelSrv::ModelRes_NoValue;
  }
  text.clear();
  while (text.size() <= maxValueFileBytes) {
    char buffer[4096];
    const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
      if (text.ends_with('\n')) {
        text.pop_back();
      }
      return ModelSrv::ModelRes_Success;
    } else if (errno != EINTR) {
      return ModelSrv::ModelRes_NoValue;
    }
  }
  return ModelSrv::ModelRes_TooLarge;
}

std::optional<std::string> writeValueFile(const std::string& path, std::string_view text) {
  const OpenValueFile file(path, O_WRONLY);
  if (file.code() != 0) {
    return path + ": " +
           (file.code() == EINVAL ? "not a regular file" : std::strerror(file.code()));
  }
  const std::string line = std::string(text) + '\n';
  if (line.size() > maxValueFileBytes) {
    return path + ": more than " + std::to_string(maxValueFileBytes) + " bytes";
  }
  ssize_t count = 0;
  do {
    count = ::write(file.get(), line.data(), line.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    return path + ": " + std::strerror(errno);
  }
  if (static_cast<std::size_t>(count) != line.size()) {
    return path + ": took " + std::to_string(count) + " of " + std::to_string(line.size()) +
           " bytes";
  }
  // The rest of a longer value. A file of the kernel keeps its size.
  if (file.size() > count && !isOneOf(kernelFileSystems, path) &&
      ::ftruncate(file.get(), count) != 0) {
    return path + ": " + std::strerror(errno);
  }
  return std::nullopt;
}

bool reportsChanges(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
    return false;
  }
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == 0 ? "/" : path.substr(0, slash);
  char real[PATH_MAX];
  return ::realpath(directory.c_str(), real) != nullptr && directory == real &&
         !isOneOf(kernelFileSystems, directory) && !isOneOf(remoteFileSystems, directory);
}

}  // namespace modelsrvd
