#include "tests/support/scratch_directory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test_support {

ScratchDirectory::ScratchDirectory() : path_(testing::TempDir() + "treescope-files-XXXXXX") {
  EXPECT_NE(::mkdtemp(path_.data()), nullptr) << path_;
}

ScratchDirectory::~ScratchDirectory() {
  std::filesystem::remove_all(path_);
}

std::string ScratchDirectory::write(const std::string& name, std::string_view bytes) const {
  std::ofstream out(file(name), std::ios::binary);
  out << bytes;
  EXPECT_TRUE(out.flush()) << name;
  return file(name);
}

std::string ScratchDirectory::read(const std::string& name) const {
  std::ifstream in(file(name), std::ios::binary);
  EXPECT_TRUE(in) << name;
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace test_support
