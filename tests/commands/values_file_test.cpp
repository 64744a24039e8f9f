#include "commands/values_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "tests/support/captured_output.h"
#include "tests/support/leak_check.h"
#include "tests/support/scratch_directory.h"

namespace treescope::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Opens the named pipe `path` for reading without waiting.
int openReader(const std::string& path) {
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_NE(reader, -1);
  return reader;
}

TEST(ValuesFile, HoldsTheTextAfterItIsClosed) {
  const test_support::ScratchDirectory directory;
  std::string whole;
  {
    ValuesFile file(directory.file("f").c_str());
    ASSERT_TRUE(file.opened());
    for (int line = 0; line < 20000; ++line) {
      const std::string text = "line " + std::to_string(line) + '\n';
      file.write(text);
      whole += text;
    }
  }
  EXPECT_EQ(directory.read("f"), whole);
}

TEST(ValuesFile, IsEmptiedWhenItIsOpened) {
  const test_support::ScratchDirectory directory;
  const std::string path = directory.write("f", "old content");
  const ValuesFile file(path.c_str());
  EXPECT_TRUE(file.opened());
  EXPECT_EQ(directory.read("f"), "");
}

TEST(ValuesFile, CannotBeADirectoryOrInAMissingDirectory) {
  const test_support::ScratchDirectory directory;
  for (const std::string& path :
       {directory.path(), directory.file("none/f"), std::string(), std::string(5000, 'x')}) {
    EXPECT_FALSE(ValuesFile(path.c_str()).opened()) << path;
  }
}

TEST(ValuesFile, DropsTextIfTheDiskIsFull) {
  ValuesFile file("/dev/full");
  ASSERT_TRUE(file.opened());
  file.write(std::string(200000, 'x'));
  file.write("and more");
}

TEST(ValuesFile, DoesNotWaitForTheReaderOfAPipe) {
  const test_support::ScratchDirectory directory;
  const std::string path = directory.file("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(ValuesFile(path.c_str()).opened());
}

TEST(ValuesFile, WritesIntoAPipeWithAReader) {
  const test_support::ScratchDirectory directory;
  const std::string path = directory.file("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int reader = openReader(path);
  {
    ValuesFile file(path.c_str());
    ASSERT_TRUE(file.opened());
    file.write("set 1 /a\n");
  }
  char text[64];
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(::read(reader, text, sizeof text))),
            "set 1 /a\n");
  ::close(reader);
}

TEST(ValuesFile, OutlivesTheReaderOfAPipe) {
  const test_support::ScratchDirectory directory;
  const std::string path = directory.file("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int reader = openReader(path);
  ValuesFile file(path.c_str());
  ASSERT_TRUE(file.opened());
  ::close(reader);
  file.write(std::string(200000, 'x'));
  sigset_t pending;
  ASSERT_EQ(::sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(ValuesFile, IsNotInheritedByPrograms) {
  const test_support::ScratchDirectory directory;
  const ValuesFile file(directory.file("values").c_str());
  ASSERT_TRUE(file.opened());
  test_support::CapturedOutput captured;
  ASSERT_EQ(std::system("ls -l /proc/self/fd"), 0);
  const std::string seen = captured.take();
  EXPECT_THAT(seen, HasSubstr("->"));
  EXPECT_THAT(seen, Not(HasSubstr("values")));
}

}  // namespace
}  // namespace treescope::test
