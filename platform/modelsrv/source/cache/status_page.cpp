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

/// What lies in the page. The counters are written by the server alone, under its
/// lock; the owner's word by the C library and the kernel.
struct StatusPageContent {
  std::array<std::uint8_t, StatusPageHandle::idSize> id{};
  std::uint32_t ownerWord = 0;  ///< where in the page the word of `owner` lies
  std::atomic<std::uint32_t> open{0};
  std::atomic<std::uint64_t> epoch{0};
  pthread_mutex_t owner{};
};

namespace {

constexpr std::size_t pageSize = sizeof(StatusPageContent);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::uint32_t>::is_always_lock_free);

constexpr int neededSeals = F_SEAL_SHRINK | F_SEAL_FUTURE_WRITE;
constexpr int givenSeals = neededSeals | F_SEAL_GROW | F_SEAL_SEAL;

/// Where the word of a robust mutex lies that the kernel writes when its owner
/// dies; below 0 where this C library does not tell.
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

bool isPlausibleWord(std::uint32_t offset) {
  return offset % sizeof(std::uint32_t) == 0 && offset <= pageSize - sizeof(std::uint32_t);
}

/// Whether a thread that lives holds the page's mutex.
bool hasLivingOwner(const StatusPageContent& content) {
  // A server may write anything at any time: the offset is checked at each look.
  const std::uint32_t offset = __atomic_load_n(&content.ownerWord, __ATOMIC_RELAXED);
  if (!isPlausibleWord(offset)) {
    return false;
  }
  const std::uint32_t word = wordAt(content, offset);
  return (word & FUTEX_OWNER_DIED) == 0 && (word & FUTEX_TID_MASK) != 0;
}

bool initialise(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) {
    return false;
  }
  const bool made = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                    // Another thread that tries to let go of it is told so.
                    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0 &&
                    pthread_mutex_init(&mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return made;
}

}  // namespace

void StatusPage::close() {
  if (content_ == nullptr) {
    return;
  }
  content_->open.store(0, std::memory_order_release);
  // Where another thread is the owner, its C library has the mutex in a list: the
  // page stays mapped then, unless that thread has ended.
  const bool isFree =
      opener_ == std::this_thread::get_id() && pthread_mutex_unlock(&content_->owner) == 0;
  if (isFree) {
    pthread_mutex_destroy(&content_->owner);
  }
  if (isFree || !hasLivingOwner(*content_)) {
    system_.unmap(content_, pageSize);
  }
  content_ = nullptr;
  descriptor_.reset();
}

EvtRes StatusPage::open() {
  const EvtRes result = make();
  if (result != EvtSrv::EvtRes_Success) {
    descriptor_.reset();
  }
  return result;
}

EvtRes StatusPage::make() {
  StatusPageHandle handle;
  if (const int refusal = system_.random(handle.id); refusal < 0) {
    return resultOf(refusal);
  }
  if (const int refusal = descriptor_.adopt(system_, system_.createMemory(pageSize)); refusal < 0) {
    return resultOf(refusal);
  }
  void* mapping = nullptr;
  if (const int refusal = system_.map(descriptor_.number(), pageSize, true, mapping); refusal < 0) {
    return resultOf(refusal);
  }
  if (const int refusal = system_.addSeals(descriptor_.number(), givenSeals); refusal < 0) {
    system_.unmap(mapping, pageSize);
    return resultOf(refusal);
  }
  content_ = new (mapping) StatusPageContent;
  if (!holdOwner()) {
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

bool StatusPage::holdOwner() {
  if (ownerWordOffset() < 0 || !initialise(content_->owner)) {
    return false;
  }
  content_->ownerWord = static_cast<std::uint32_t>(ownerWordOffset());
  // It is free, and nobody else ever takes it: there is nothing to wait for, and no
  // order of locks to keep.
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
  // Nothing that the caller does next may be seen before this is. Counted in the
  // page, so that it never goes back: a child that this process has forked may have
  // gone on counting in it.
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
  if (seals < 0 || (seals & neededSeals) != neededSeals ||
      system_.fstat(descriptor.number(), status) < 0 ||
      status.st_size != static_cast<off_t>(pageSize) ||
      system_.map(descriptor.number(), pageSize, false, mapping) < 0) {
    return false;
  }
  content_ = static_cast<const StatusPageContent*>(mapping);
  handle_ = handle;
  if (content_->id != handle.id || !isPlausibleWord(content_->ownerWord)) {
    close();
    return false;
  }
  return true;
}

void StatusPageReader::close() {
  if (content_ != nullptr) {
    system_.unmap(content_, pageSize);
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
         hasLivingOwner(*content_);
}

}  // namespace ModelSrv::internal
