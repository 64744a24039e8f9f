#include "evtsrv/source/name_claim.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "evtsrv/source/mailbox.h"

namespace EvtSrv::internal {

namespace {

// How often another server may be between its two steps, or end, while this one claims.
constexpr int maxClaimAttempts = 16;

// How many connections one call closes.
constexpr int maxConnectionsAtOnce = 64;

/// FNV-1a. An address is shorter than a port name may be.
std::uint64_t hashOf(const std::string& text) {
  constexpr std::uint64_t basis = 0xCBF29CE484222325U;
  constexpr std::uint64_t prime = 0x100000001B3U;
  std::uint64_t hash = basis;
  for (const char byte : text) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * prime;
  }
  return hash;
}

/// The address of `name` for this user. Each directory of pipes has its own: services with
/// a private /tmp do not see each other's ports.
int makeAddress(System& system, const std::string& name, std::string& address) {
  struct stat directory {};
  const int result = system.lstat(pipeDirectory, directory);
  if (result < 0) {
    return result;
  }
  std::array<char, maxAddress + 1> text{};
  std::snprintf(text.data(), text.size(), "krv-%u-%" PRIx64 "-%" PRIx64 "-%016" PRIx64 "-%s",
                static_cast<unsigned>(system.effectiveUser()),
                static_cast<std::uint64_t>(directory.st_dev),
                static_cast<std::uint64_t>(directory.st_ino), hashOf(name), name.c_str());
  address = text.data();
  return 0;
}

/// Whether an error says nothing about who has the address.
bool isLackOfResources(int result) {
  return result == -EMFILE || result == -ENFILE || result == -ENOMEM || result == -ENOBUFS;
}

}  // namespace

EvtRes NameClaim::take(System& system, const std::string& name) {
  system_ = &system;
  std::string address;
  int result = makeAddress(system, name, address);
  for (int attempt = 0; result == 0 && attempt < maxClaimAttempts; ++attempt) {
    result = socket_.adopt(system, system.claimAddress(address));
    if (result != -EADDRINUSE) {
      break;
    }
    uid_t holder = 0;
    result = system.holderOfAddress(address, holder);
    if (result == 0 && holder == system.effectiveUser()) {
      return EvtRes_NameInUse;
    }
    if (isLackOfResources(result)) {
      break;
    }
    // Refused: its holder does not listen yet, or has just ended. Otherwise it is another
    // user's.
    result = result == -ECONNREFUSED ? 0 : -EADDRINUSE;
  }
  return isLackOfResources(result) ? resultOf(result) : EvtRes_Success;
}

int NameClaim::closeConnections() {
  int result = 0;
  for (int taken = 0; result == 0 && taken < maxConnectionsAtOnce; ++taken) {
    FileDescriptor connection;
    result = connection.adopt(*system_, system_->acceptConnection(socket_.number()));
  }
  return result;
}

}  // namespace EvtSrv::internal
