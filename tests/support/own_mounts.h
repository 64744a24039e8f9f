#pragma once

namespace test_support {

/// Gives the calling thread, and the threads and processes that it starts later, mounts of
/// their own, once; false, with `errno`, if the system does not permit that.
bool haveOwnMounts();

/// Mounts an empty file system on /tmp; `options` are those of tmpfs(5). For a process with
/// mounts of its own. False, with `errno`, on an error.
bool mountOwnTmp(const char* options = "mode=1777");

/// Unmounts what was mounted on /tmp last; false, with `errno`, on an error.
bool unmountOwnTmp();

}  // namespace test_support
