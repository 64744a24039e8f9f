#include "modelsrv/source/cache/status_page.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>

#include <atomic>
#include <new>

namespace ModelSrv::internal {

using EvtSrv::EvtRes;
using EvtSrv::internal::FileDescriptor;
using EvtSrv::internal::resultOf;

/// The layout of the page. Only the server writes `open` and `epoch`, with its client mutex
/// held; the C library and the kernel write `owner`, whose size differs between machines and
/// between 32 and 64 bits: a reader looks at its futex word alone.
struct StatusPageContent {
  std::array<std::uint8_t, StatusPageHandle::idSize> id{};
  std::uint32_t ownerWord = 0;  ///< the offset of the futex word of `owner` in the page
  std::atomic<std::uint32_t> open{0};
  std::atomic<std::uint64_t> epoch{0};
  pthread_mutex_t owner{};
};

namespace {

constexpr std::size_t pageSize = sizeof(StatusPageContent);
constexpr std::size_t minReadSize = offsetof(StatusPageContent, owner) + sizeof(std::uint32_t);
constexpr std::size_t maxReadSize = 4096;
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(offsetof(StatusPageContent, epoch) == 24 &&
              offsetof(StatusPageContent, owner) == 32 && pageSize <= maxReadSize);

constexpr int requiredSeals = F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE;
constexpr int allSeals = requiredSeals | F_SEAL_GROW | F_SEAL_SEAL;

/// The offset of the futex word of the robust mutex, which the kernel writes when the owner
/// dies. Negative if the C library does not expose it.
constexpr std::ptrdiff_t ownerWordOffset() {
#ifdef __GLIBC__
  return offsetof(StatusPageContent, owner) + offsetof(pthread_mutex_t, __data.__lock);
#else
  return -1;
#endif
}

std::uint32_t wordAt(const StatusPageContent& content, std::uint32_t offset) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&content);
  return __atomic_load_n(reinterpret_cast<const std::uint32_t*>(bytes + offset), __ATOMIC_ACQUIRE);
}

bool isPlausibleWord(std::uint32_t offset, std::size_t size) {
  return offset % sizeof(std::uint32_t) == 0 && offset <= size - sizeof(std::uint32_t);
}

/// Whether a live thread holds the mutex of the page of `size` bytes.
bool hasLivingOwner(const StatusPageContent& content, std::size_t size) {
  // A server may write anything at any time, so the offset is checked each time.
  const std::uint32_t offset = __atomic_load_n(&content.ownerWord, __ATOMIC_RELAXED);
  if (!isPlausibleWord(offset, size)) {
    return false;
  }
  const std::uint32_t word = wordAt(content, offset);
  return (word & FUTEX_OWNER_DIED) == 0 && (word & FUTEX_TID_MASK) != 0;
}

bool initialize(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) {
    return false;
  }
  const bool initialized = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                           pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                           // An unlock by another thread must fail.
                           pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0 &&
                           pthread_mutex_init(&mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return initialized;
}

}  // namespace

void StatusPage::close() {
  if (content_ == nullptr) {
    return;
  }
  content_->open.store(0, std::memory_order_release);
  // If another thread is the owner, the C library keeps the mutex in a list of that thread. The
  // page must then stay mapped unless the thread has ended.
  const bool isFree =
      opener_ == std::this_thread::get_id() && pthread_mutex_unlock(&content_->owner) == 0;
  if (isFree) {
    pthread_mutex_destroy(&content_->owner);
  }
  if (isFree || !hasLivingOwner(*content_, pageSize)) {
    system_.unmap(content_, pageSize);
  }
  content_ = nullptr;
  descriptor_.reset();
}

EvtRes StatusPage::open() {
  const EvtRes result = create();
  if (result != EvtSrv::EvtRes_Success) {
    descriptor_.reset();
  }
  return result;
}

EvtRes StatusPage::create() {
  StatusPageHandle handle;
  if (const int error = system_.random(handle.id); error < 0) {
    return resultOf(error);
  }
  if (const int error = descriptor_.adopt(system_, system_.createMemory(pageSize)); error < 0) {
    return resultOf(error);
  }
  void* mapping = nullptr;
  if (const int error = system_.map(descriptor_.number(), pageSize, true, mapping); error < 0) {
    return resultOf(error);
  }
  if (const int error = system_.addSeals(descriptor_.number(), allSeals); error < 0) {
    system_.unmap(mapping, pageSize);
    return resultOf(error);
  }
  content_ = new (mapping) StatusPageContent;
  if (!lockOwner()) {
    system_.unmap(content_, pageSize);
    content_ = nullptr;
    return EvtSrv::EvtRes_SystemError;
  }
  handle.process = system_.processId();
  handle.descriptor = static_cast<std::uint32_t>(descriptor_.number());
  handle_ = handle;
  content_->id = handle.id;
  content_->open.store(1, std::memory_order_release);
  advance();
  return EvtSrv::EvtRes_Success;
}

bool StatusPage::lockOwner() {
  if (ownerWordOffset() < 0 || !system_.reportsOwnerDeath() || !initialize(content_->owner)) {
    return false;
  }
  content_->ownerWord = static_cast<std::uint32_t>(ownerWordOffset());
  // The mutex is free and no other thread ever locks it: this never waits, and it needs no lock
  // order.
  opener_ = std::this_thread::get_id();
  return pthread_mutex_trylock(&content_->owner) == 0;
}

void StatusPage::advance() {
  advanceBy(1);
}

void StatusPage::advanceStructure() {
  advanceBy(std::uint64_t{1} << structureShift);
}

void StatusPage::advanceBy(std::uint64_t epochs) {
  // Sequentially consistent: a client that sees anything that the caller does next sees the new
  // epoch too. It is counted in the page itself, so that it never goes back even if a forked
  // child of this process has advanced it.
  epoch_ = content_->epoch.fetch_add(epochs, std::memory_order_seq_cst) + epochs;
}

bool StatusPageReader::open(const StatusPageHandle& handle) {
  close();
  FileDescriptor descriptor;
  struct stat status {};
  void* mapping = nullptr;
  if (descriptor.adopt(system_, system_.openDescriptorOf(handle.process, handle.descriptor)) < 0) {
    return false;
  }
  const int seals = system_.seals(descriptor.number());
  if (seals < 0 || (seals & requiredSeals) != requiredSeals ||
      system_.fstat(descriptor.number(), status) < 0 ||
      status.st_size < static_cast<off_t>(minReadSize) ||
      status.st_size > static_cast<off_t>(maxReadSize)) {
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (system_.map(descriptor.number(), size, false, mapping) < 0) {
    return false;
  }
  content_ = static_cast<const StatusPageContent*>(mapping);
  size_ = size;
  handle_ = handle;
  if (content_->id != handle.id || !isPlausibleWord(content_->ownerWord, size_)) {
    close();
    return false;
  }
  return true;
}

void StatusPageReader::close() {
  if (content_ != nullptr) {
    system_.unmap(content_, size_);
    content_ = nullptr;
  }
}

bool StatusPageReader::isCurrent(std::uint64_t epoch) const {
  return content_ != nullptr && content_->epoch.load(std::memory_order_seq_cst) == epoch &&
         isServerAlive();
}

bool StatusPageReader::isStructureCurrent(std::uint64_t epoch) const {
  return content_ != nullptr &&
         content_->epoch.load(std::memory_order_seq_cst) >> structureShift ==
             epoch >> structureShift &&
         isServerAlive();
}

bool StatusPageReader::isServerAlive() const {
  return content_ != nullptr && content_->open.load(std::memory_order_acquire) != 0 &&
         hasLivingOwner(*content_, size_);
}

}  // namespace ModelSrv::internal
