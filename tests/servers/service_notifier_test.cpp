#include "servers/service_notifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/model_server.h"
#include "tests/support/scratch_directory.h"

namespace modelsrvd {
namespace {

/// The service manager's end: a socket whose name the environment has.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& name)
      : descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    address.sun_path[0] = name[0] == '@' ? '\0' : name[0];
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size), 0);
    const timeval limit{20, 0};
    EXPECT_EQ(::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  ~NotifySocket() {
    ::unsetenv("NOTIFY_SOCKET");
    ::close(descriptor_);
  }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  [[nodiscard]] std::string receive() const {
    char buffer[256];
    const ssize_t count = ::recv(descriptor_, buffer, sizeof buffer, 0);
    return count < 0 ? "nothing" : std::string(buffer, static_cast<std::size_t>(count));
  }

 private:
  int descriptor_;
};

TEST(ServiceNotifier, ReportsReadinessReloadsAndTheEnd) {
  const test_support::ScratchDirectory scratch;
  for (const std::string& name :
       {scratch.path() + "/notify", "@modelsrvd-test-" + std::to_string(::getpid())}) {
    const NotifySocket socket(name);
    test_support::ModelServer server({"--synthetic", "1x1"});
    EXPECT_EQ(socket.receive(), "READY=1");
    server.process().signal(SIGHUP);
    EXPECT_THAT(socket.receive(), testing::MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+"));
    EXPECT_EQ(socket.receive(), "READY=1");
    EXPECT_TRUE(server.stops(SIGTERM)) << server.process().errors();
    EXPECT_EQ(socket.receive(), "STOPPING=1");
  }
}

TEST(ServiceNotifier, SendsNothingWithoutASocketAndReportsABadOne) {
  ::unsetenv("NOTIFY_SOCKET");
  EXPECT_FALSE(ServiceNotifier().ready());
  for (const std::string& name : {std::string("relative"), "/" + std::string(200, 'x')}) {
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_EQ(ServiceNotifier().ready()->text,
              "NOTIFY_SOCKET " + name + ": expected a path or an abstract name");
  }
  ::setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
  EXPECT_EQ(ServiceNotifier().stopping()->text,
            "NOTIFY_SOCKET /nonexistent/notify: No such file or directory");
  ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
}  // namespace modelsrvd
