#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/system.h"

/// A page of memory in which a server shows its clients whether it lives and how
/// often it has taken back what it told them. Looking there costs a client two
/// loads and no system call. The layout is written down in platform/PROTOCOL.md.
///
/// The count is called the epoch. Its upper bits count alone what was taken back of
/// the shape of things, so that what was told of it outlasts changes of values: an
/// era is all epochs with the same upper bits.
///
/// The page is a sealed memfd (memfd_create(2)): it cannot shrink below a mapping,
/// and only the mapping that its maker has can change it, so that neither side can
/// harm the other through it. That its maker dies is written into the page by the
/// kernel before anybody else can learn of it: a robust mutex there (see
/// pthread_mutexattr_setrobust(3)) is locked as long as the page is open.
namespace ModelSrv::internal {

/// What a client needs to find a server's page.
struct StatusPageHandle {
  static constexpr std::size_t idSize = 16;

  std::uint32_t process = 0;     ///< the server's, as it sees itself
  std::uint32_t descriptor = 0;  ///< of the page, in that process
  /// Random; also in the page, so that another process's page is not taken for it.
  std::array<std::uint8_t, idSize> id{};

  bool operator==(const StatusPageHandle&) const = default;
};

/// By how many bits an epoch is shifted to give its era.
inline constexpr unsigned structureShift = 20;

struct StatusPageContent;

/// The server's end. The thread that opens the page has to live as long as the
/// page is to count: when it ends, clients take the server for dead, and ask.
class StatusPage {
 public:
  explicit StatusPage(EvtSrv::internal::System& system) : system_(system) {}
  ~StatusPage() { close(); }
  StatusPage(const StatusPage&) = delete;
  StatusPage& operator=(const StatusPage&) = delete;

  /// Makes the page, with an epoch of 1. Where the system has no such pages the
  /// result says so, and this stays closed.
  EvtSrv::EvtRes open();

  /// Every look from now on sees that nothing counts any more. By whichever thread;
  /// by another than the opener, while that one lives, the page's memory is not
  /// given back.
  void close();

  [[nodiscard]] bool isOpen() const { return content_ != nullptr; }
  [[nodiscard]] const StatusPageHandle& handle() const { return handle_; }
  [[nodiscard]] std::uint64_t epoch() const { return epoch_; }

  /// Begins another epoch; every look from now on sees it. It is one of the same era,
  /// save one in a million.
  void advance();
  /// Begins another era, and with it another epoch.
  void advanceStructure();

 private:
  EvtSrv::EvtRes make();
  bool holdOwner();
  void advanceBy(std::uint64_t epochs);

  EvtSrv::internal::System& system_;
  EvtSrv::internal::FileDescriptor descriptor_;
  StatusPageContent* content_ = nullptr;  ///< the mapping; owned
  std::thread::id opener_;                ///< who holds the page's mutex
  StatusPageHandle handle_;
  std::uint64_t epoch_ = 0;
};

/// A client's end: looks at one server's page at a time.
class StatusPageReader {
 public:
  explicit StatusPageReader(EvtSrv::internal::System& system) : system_(system) {}
  ~StatusPageReader() { close(); }
  StatusPageReader(const StatusPageReader&) = delete;
  StatusPageReader& operator=(const StatusPageReader&) = delete;

  /// Looks at the page at `handle` from now on. False where it cannot be had: the
  /// server is another user's, or in another handle than it says, or its page is
  /// not one that can be trusted.
  bool open(const StatusPageHandle& handle);
  void close();

  [[nodiscard]] bool isOpen() const { return content_ != nullptr; }
  [[nodiscard]] const StatusPageHandle& handle() const { return handle_; }

  /// Whether the server lives and serves, and its epoch is still `epoch`.
  [[nodiscard]] bool isCurrent(std::uint64_t epoch) const;
  /// Whether it lives and serves, and its era is still that of `epoch`.
  [[nodiscard]] bool isStructureCurrent(std::uint64_t epoch) const;
  /// Whether it lives and serves. Once it does not, it never will again.
  [[nodiscard]] bool isServerAlive() const;

 private:
  EvtSrv::internal::System& system_;
  const StatusPageContent* content_ = nullptr;  ///< the mapping; owned
  StatusPageHandle handle_;
};

}  // namespace ModelSrv::internal
