#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/system.h"

/// A page of memory that a server shares with its clients. It shows whether the server is alive
/// and whether cached replies are current. A client's check costs two loads and no system call.
/// The layout is specified in platform/PROTOCOL.md, section 11.
///
/// The page has a counter, the epoch. Its upper bits are the structure version, which changes
/// only when the structure of the tree does, so cached structure outlasts changes of values.
///
/// The page is a sealed memfd (memfd_create(2)): it cannot shrink below a mapping, and only the
/// mapping of its server can change it, so neither side can harm the other through it. A robust
/// mutex in the page (pthread_mutexattr_setrobust(3)) is locked as long as the page is open:
/// when the server dies the kernel marks it before any other process can learn of the death.
namespace ModelSrv::internal {

/// What a client needs to find the page of a server.
struct StatusPageHandle {
  static constexpr std::size_t idSize = 16;

  std::uint32_t process = 0;     ///< the server's process id, in its own namespace
  std::uint32_t descriptor = 0;  ///< the page's descriptor in that process
  /// Random, and stored in the page too, so that a client detects a wrong page.
  std::array<std::uint8_t, idSize> id{};

  bool operator==(const StatusPageHandle&) const = default;
};

/// The number of the epoch's lower bits that do not belong to the structure version.
inline constexpr unsigned structureShift = 20;

struct StatusPageContent;

/// The server's side. The thread that opens the page must live as long as the page is used:
/// after its end clients assume that the server is dead, and use no cached replies.
class StatusPage {
 public:
  explicit StatusPage(EvtSrv::internal::System& system) : system_(system) {}
  ~StatusPage() { close(); }
  StatusPage(const StatusPage&) = delete;
  StatusPage& operator=(const StatusPage&) = delete;

  /// Creates the page with an epoch of 1. If the system does not support it the result is an
  /// error and the page stays closed.
  EvtSrv::EvtRes open();

  /// Invalidates everything that clients have cached. Any thread may call this. If it is not
  /// the thread that opened the page, and that thread is still alive, the memory of the page is
  /// not freed.
  void close();

  [[nodiscard]] bool isOpen() const { return content_ != nullptr; }
  [[nodiscard]] const StatusPageHandle& handle() const { return handle_; }
  [[nodiscard]] std::uint64_t epoch() const { return epoch_; }

  /// Begins a new epoch, which is visible to clients when this returns. The structure version
  /// stays the same, except once in about a million calls.
  void advance();
  /// Begins a new structure version and thus a new epoch.
  void advanceStructure();

 private:
  EvtSrv::EvtRes create();
  bool lockOwner();
  void advanceBy(std::uint64_t epochs);

  EvtSrv::internal::System& system_;
  EvtSrv::internal::FileDescriptor descriptor_;
  StatusPageContent* content_ = nullptr;  ///< the mapping; owned
  std::thread::id opener_;                ///< the thread that holds the page's mutex
  StatusPageHandle handle_;
  std::uint64_t epoch_ = 0;
};

/// A client's side: reads the page of one server at a time.
class StatusPageReader {
 public:
  explicit StatusPageReader(EvtSrv::internal::System& system) : system_(system) {}
  ~StatusPageReader() { close(); }
  StatusPageReader(const StatusPageReader&) = delete;
  StatusPageReader& operator=(const StatusPageReader&) = delete;

  /// Maps the page with that handle. False if that is not possible: the server belongs to
  /// another user or another process namespace, or the page cannot be trusted.
  bool open(const StatusPageHandle& handle);
  void close();

  [[nodiscard]] bool isOpen() const { return content_ != nullptr; }
  [[nodiscard]] const StatusPageHandle& handle() const { return handle_; }

  /// Whether the server is alive and serves, and its epoch is still `epoch`.
  [[nodiscard]] bool isCurrent(std::uint64_t epoch) const;
  /// Whether the server is alive and serves, and its structure version is still that of `epoch`.
  [[nodiscard]] bool isStructureCurrent(std::uint64_t epoch) const;
  /// Whether the server is alive and serves. Once this is false it stays false.
  [[nodiscard]] bool isServerAlive() const;

 private:
  EvtSrv::internal::System& system_;
  const StatusPageContent* content_ = nullptr;  ///< the mapping; owned
  std::size_t size_ = 0;                        ///< of the page, in bytes
  StatusPageHandle handle_;
};

}  // namespace ModelSrv::internal
