#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

struct Garbage {
  const char* name;
  std::string bytes;
};

/// How the test list shows a row.
void PrintTo(const Garbage& row, std::ostream* out) {
  *out << row.name;
}

std::string corruptedHello(std::size_t position) {
  std::string hello = wire::hello(std::string(16, 'a'));
  hello[position] = static_cast<char>(hello[position] ^ 0x40);
  return hello;
}

std::vector<Garbage> garbage() {
  const std::string hello = wire::hello(std::string(16, 'a'));
  return {
      {"Nothing", {}},
      {"OneByte", "x"},
      {"Zeros", std::string(1000, '\0')},
      {"Ones", std::string(1000, '\xFF')},
      {"WrongChecksum", corruptedHello(33)},
      {"WrongToken", corruptedHello(20)},
      {"WrongSize", corruptedHello(10)},
      {"WrongVersion", corruptedHello(9)},
      {"ManyWrongChecksums", corruptedHello(33) + corruptedHello(32) + corruptedHello(35)},
      {"MagicTwice", hello.substr(0, 8) + hello.substr(0, 8)},
      {"AlmostAFullPage", std::string(4000, '?')},
      {"HelloWhosePipesDoNotExist", hello},
  };
}

class MailboxGarbage : public FaultTest, public testing::WithParamInterface<Garbage> {
 protected:
  void SetUp() override { ASSERT_EQ(server_.execute("serve " + port), success()); }

  void expectServed() {
    Client client;
    const Reply reply = client.connect(port);
    EXPECT_EQ(reply.result, ModelRes_Success);
    EXPECT_LT(reply.elapsed, immediateLimit);
    EXPECT_EQ(client.get(client.counter).text, "0");
  }

  Peer server_;
};

TEST_P(MailboxGarbage, IsSkippedAndTheHelloRightAfterItIsServed) {
  RawClient client;
  ASSERT_TRUE(client.sendHello(mailbox, GetParam().bytes));
  EXPECT_TRUE(client.awaitWelcome());
  expectServed();
}

INSTANTIATE_TEST_SUITE_P(Mailbox, MailboxGarbage, testing::ValuesIn(garbage()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(MailboxGarbage, PartialMagicOfEveryLengthIsSkipped) {
  const std::string hello = wire::hello(std::string(16, 'b'));
  for (std::size_t length = 1; length < hello.size(); ++length) {
    RawClient client;
    ASSERT_TRUE(client.sendHello(mailbox, hello.substr(0, length)));
    EXPECT_TRUE(client.awaitWelcome()) << "after the first " << length << " bytes of a hello";
  }
}

TEST_F(MailboxGarbage, HelloThatIsSplitAtAnyByteIntoTwoWritesIsServed) {
  for (std::size_t cut = 1; cut < wire::helloSize; ++cut) {
    RawClient client;
    const RawPipe pipe = RawPipe::open(mailbox, O_WRONLY);
    const std::string hello = wire::hello(client.token);
    ASSERT_TRUE(pipe.write(hello.substr(0, cut)));
    ASSERT_TRUE(eventually([&] { return pipe.pendingBytes() == 0; }));
    ASSERT_TRUE(pipe.write(hello.substr(cut)));
    EXPECT_TRUE(client.awaitWelcome()) << "cut at " << cut;
  }
}

TEST_F(MailboxGarbage, MailboxFullOfGarbageIsEmptiedAndServed) {
  server_.suspend();
  const RawPipe pipe = RawPipe::open(mailbox, O_WRONLY);
  const int capacity = ::fcntl(pipe.descriptor(), F_GETPIPE_SZ);
  ASSERT_GT(capacity, 0);
  ASSERT_TRUE(pipe.write(std::string(static_cast<std::size_t>(capacity), '\x9E')));
  Peer client;
  client.send("connect " + port);
  ASSERT_EQ(awaitPrivatePipes(client.pid()).size(), 3U);
  server_.resume();
  EXPECT_EQ(client.result(), success());
  expectServed();
}

TEST_F(MailboxGarbage, SameHelloTwiceDoesNotAffectOtherClients) {
  RawClient client;
  ASSERT_TRUE(client.sendHello(mailbox, wire::hello(client.token)));
  static_cast<void>(client.awaitWelcome());
  expectServed();
}

TEST_F(MailboxGarbage, FilesInPlaceOfTheHellosPipesAreNotWrittenTo) {
  const std::string token = wire::newToken();
  const std::string replies = wire::privatePipePath(token, ".rep");
  const std::string events = wire::privatePipePath(token, ".evt");
  const std::string target = pathOf(port + "_target");
  // Written and read by descriptors: a client that connects may remove the names.
  std::vector<RawPipe> files;
  const auto make = [&files](const std::string& path) {
    files.emplace_back(::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
    ASSERT_TRUE(files.back().write("untouched")) << path;
  };
  // A client without the library removes no names.
  const auto expectRawClientServed = [this] {
    RawClient next;
    EXPECT_TRUE(next.connect(mailbox));
  };
  make(target);
  make(events);
  ASSERT_EQ(::symlink(target.c_str(), replies.c_str()), 0);
  const std::size_t before = descriptorCount(server_.pid());

  const RawPipe pipe = RawPipe::open(mailbox, O_WRONLY);
  EXPECT_TRUE(pipe.write(wire::hello(token)));
  expectRawClientServed();
  ::unlink(replies.c_str());
  make(replies);
  EXPECT_TRUE(pipe.write(wire::hello(token)));
  expectRawClientServed();

  for (const RawPipe& file : files) {
    char text[32] = {};
    EXPECT_EQ(::pread(file.descriptor(), text, sizeof text, 0), 9);
    EXPECT_STREQ(text, "untouched");
  }
  for (const std::string& path : {target, replies, events}) {
    ::unlink(path.c_str());
  }
  EXPECT_TRUE(eventually([&] { return descriptorCount(server_.pid()) == before; }));
  expectServed();
}

}  // namespace
}  // namespace fault
