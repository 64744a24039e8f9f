#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "treescope.h"

/// Runs calls of the C interface that bytes describe: in any order, with any handles (none, open,
/// closed, of another kind), from the main thread, from the servers' threads and from callbacks.
/// Shared by a test with random bytes and a fuzz target. Nothing may crash, hang or leak.
namespace bindings_tests {

class CallSequence {
 public:
  /// `name` begins the names of the ports.
  explicit CallSequence(std::string name);
  /// Closes everything.
  ~CallSequence();
  CallSequence(const CallSequence&) = delete;
  CallSequence& operator=(const CallSequence&) = delete;

  /// Returns the number of calls that succeeded.
  unsigned run(std::span<const std::uint8_t> bytes);

 private:
  static constexpr std::size_t partCount = 8;

  struct Server {
    std::atomic<treescope_server*> handle{nullptr};
    std::array<std::atomic<treescope_part*>, partCount> parts{};
    std::thread thread;
    std::atomic<unsigned> callbacks{0};
    // What callbacks have got; kept beyond them, as no program should.
    std::atomic<const treescope_store_request*> request{nullptr};
    std::atomic<treescope_reply*> reply{nullptr};
    std::string name;
  };

  std::uint8_t next();
  const char* path();
  std::string text();

  Server& server() { return servers_[next() % servers_.size()]; }
  std::atomic<treescope_part*>& partSlot(Server& of) { return of.parts[next() % partCount]; }
  treescope_part* part();
  treescope_client*& clientSlot() { return clients_[next() % clients_.size()]; }
  treescope_client* client();

  treescope_result call();
  treescope_result callClient(unsigned operation);
  treescope_result storeAsClient(unsigned operation);
  treescope_result callServer(unsigned operation);
  treescope_result callPart(unsigned operation);
  treescope_result openServer();
  treescope_result addPart();
  treescope_result setCallback();
  void closeServer(Server& server);

  static treescope_result useFromCallback(void* context, treescope_part* part);
  static void useFromWatch(void* context, const treescope_update* update);
  static bool useFromVisitor(void* context, const treescope_tree_part* part);

  std::span<const std::uint8_t> rest_;
  std::array<Server, 2> servers_;
  std::array<treescope_client*, 3> clients_{};
  std::array<treescope_watch*, 3> watches_{};
  treescope_result described_ = TREESCOPE_SUCCESS;
};

}  // namespace bindings_tests
