// A plugin for qemu's user-mode emulators: counts the instructions of an emulated program and
// appends the sum to a file when it exits.
//
//   qemu-arm -plugin libinstruction_counter.so,out=FILE PROGRAM
//
// With places=FILE it also appends "address count" for each block of code that ran; with
// pages=1 the sum is followed by the number of pages of 4 KiB that the program executed or
// accessed itself. Debian packages no header of the interface, so what is used of version 1 is
// declared here.

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>

// The names are those of the interface.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {

using PluginId = std::uint64_t;
struct qemu_info_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;

std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);
std::uint64_t qemu_plugin_tb_vaddr(const qemu_plugin_tb* block);
qemu_plugin_insn* qemu_plugin_tb_get_insn(const qemu_plugin_tb* block, std::size_t index);
void qemu_plugin_register_vcpu_mem_cb(qemu_plugin_insn* instruction,
                                      void (*call)(unsigned, std::uint32_t, std::uint64_t, void*),
                                      int registers, int accesses, void* data);
void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id, void (*call)(PluginId, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, int operation, void* counter,
                                              std::uint64_t added);
void qemu_plugin_register_atexit_cb(PluginId id, void (*call)(PluginId, void*), void* data);

__attribute__((visibility("default"))) extern int qemu_plugin_version;
int qemu_plugin_version = 1;
__attribute__((visibility("default"))) int qemu_plugin_install(PluginId id, const qemu_info_t* info,
                                                               int count, char** arguments);
}
// NOLINTEND(readability-identifier-naming)

namespace {

constexpr int addToCounter = 0;
constexpr int noRegisters = 0;
constexpr int readsAndWrites = 3;
constexpr unsigned pageShift = 12;

std::string sumFile;
std::string placesFile;
std::uint64_t sum = 0;
bool countsPages = false;

struct Place {
  std::uint64_t executed = 0;  ///< instructions
};

// The emulator translates in every thread of the program, and counts through the pointers.
std::mutex mutex;
std::map<std::uint64_t, std::unique_ptr<Place>> places;
std::unordered_set<std::uint64_t> pages;

void accessed(unsigned /*processor*/, std::uint32_t /*kind*/, std::uint64_t address,
              void* /*data*/) {
  const std::lock_guard lock(mutex);
  pages.insert(address >> pageShift);
}

void translated(PluginId /*id*/, qemu_plugin_tb* block) {
  const std::size_t instructions = qemu_plugin_tb_n_insns(block);
  qemu_plugin_register_vcpu_tb_exec_inline(block, addToCounter, &sum, instructions);
  if (countsPages) {
    // What is translated is executed, as a rule at once.
    accessed(0, 0, qemu_plugin_tb_vaddr(block), nullptr);
    for (std::size_t i = 0; i < instructions; ++i) {
      qemu_plugin_register_vcpu_mem_cb(qemu_plugin_tb_get_insn(block, i), accessed, noRegisters,
                                       readsAndWrites, nullptr);
    }
  }
  if (placesFile.empty()) {
    return;
  }
  const std::lock_guard lock(mutex);
  std::unique_ptr<Place>& place = places[qemu_plugin_tb_vaddr(block)];
  if (!place) {
    place = std::make_unique<Place>();
  }
  qemu_plugin_register_vcpu_tb_exec_inline(block, addToCounter, &place->executed, instructions);
}

void atExit(PluginId /*id*/, void* /*data*/) {
  if (std::FILE* const file = std::fopen(sumFile.c_str(), "a")) {
    const std::lock_guard lock(mutex);
    if (countsPages) {
      std::fprintf(file, "%" PRIu64 " %zu\n", sum, pages.size());
    } else {
      std::fprintf(file, "%" PRIu64 "\n", sum);
    }
    std::fclose(file);
  }
  if (placesFile.empty()) {
    return;
  }
  if (std::FILE* const file = std::fopen(placesFile.c_str(), "a")) {
    const std::lock_guard lock(mutex);
    for (const auto& [address, place] : places) {
      std::fprintf(file, "%" PRIx64 " %" PRIu64 "\n", address, place->executed);
    }
    std::fclose(file);
  }
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
int qemu_plugin_install(PluginId id, const qemu_info_t* /*info*/, int count, char** arguments) {
  for (int i = 0; i < count; ++i) {
    if (std::strncmp(arguments[i], "out=", 4) == 0) {
      sumFile = arguments[i] + 4;
    } else if (std::strncmp(arguments[i], "places=", 7) == 0) {
      placesFile = arguments[i] + 7;
    } else if (std::strcmp(arguments[i], "pages=1") == 0) {
      countsPages = true;
    }
  }
  if (sumFile.empty()) {
    return 1;
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, atExit, nullptr);
  return 0;
}
