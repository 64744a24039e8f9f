#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace treescope {

/// A command file that the destructor removes.
class ScriptFile {
 public:
  explicit ScriptFile(const std::string& contents) {
    const int descriptor = ::mkstemp(name_.data());
    EXPECT_NE(descriptor, -1);
    EXPECT_EQ(::write(descriptor, contents.data(), contents.size()),
              static_cast<ssize_t>(contents.size()));
    ::close(descriptor);
  }
  ~ScriptFile() { ::unlink(name_.c_str()); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;

  [[nodiscard]] const char* name() const { return name_.c_str(); }

 private:
  std::string name_ = testing::TempDir() + "script-XXXXXX";
};

}  // namespace treescope
