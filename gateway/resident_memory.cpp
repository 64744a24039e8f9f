#include "gateway/resident_memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace modelgate {

namespace {

/// Whether the loader has changed segments that cannot be written.
bool hasTextRelocations(const dl_phdr_info& object) {
  for (int i = 0; i < object.dlpi_phnum; ++i) {
    if (object.dlpi_phdr[i].p_type != PT_DYNAMIC) {
      continue;
    }
    const auto* entry =
        reinterpret_cast<const ElfW(Dyn)*>(object.dlpi_addr + object.dlpi_phdr[i].p_vaddr);
    for (; entry->d_tag != DT_NULL; ++entry) {
      if (entry->d_tag == DT_TEXTREL ||
          (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0)) {
        return true;
      }
    }
  }
  return false;
}

/// The pages of one object that are as they are in its file. If the system refuses, they stay.
int releasePages(dl_phdr_info* object, std::size_t /*size*/, void* /*data*/) {
  // The system's own object is in no file.
  const bool isSystems = std::string_view(object->dlpi_name).starts_with("linux-");
  if (isSystems || hasTextRelocations(*object)) {
    return 0;
  }
  const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
      continue;
    }
    const std::uintptr_t start = object->dlpi_addr + segment.p_vaddr;
    // Whole pages only: the file's end may share one with something else.
    const std::uintptr_t first = (start + page - 1) / page * page;
    const std::uintptr_t last = (start + segment.p_filesz) / page * page;
    if (first < last) {
      // A mapping of integer addresses is what the loader reports.
      void* const address = reinterpret_cast<void*>(first);  // NOLINT(performance-no-int-to-ptr)
      static_cast<void>(::madvise(address, last - first, MADV_DONTNEED));
    }
  }
  return 0;
}

}  // namespace

void releaseUnusedMemory() {
  ::malloc_trim(0);
  ::dl_iterate_phdr(releasePages, nullptr);
}

}  // namespace modelgate
