#include "tests/support/system_call_filter.h"

#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>

namespace test_support {

namespace {

constexpr std::uint32_t numberOffset = offsetof(seccomp_data, nr);

// The lower half of the argument.
constexpr std::uint32_t argumentOffset(unsigned position) {
  constexpr bool mostFirst = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
  return static_cast<std::uint32_t>(offsetof(seccomp_data, args) +
                                    position * sizeof(std::uint64_t) +
                                    (mostFirst ? sizeof(std::uint32_t) : 0));
}

}  // namespace

SystemCallFilter::SystemCallFilter() : program_{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, numberOffset)} {}

void SystemCallFilter::fail(std::uint32_t call, std::uint32_t error) {
  program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
  program_.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
}

void SystemCallFilter::failIfEqual(std::uint32_t call, unsigned position, std::uint32_t value,
                                   std::uint32_t error) {
  add(call, position, BPF_JEQ, value, error);
}

void SystemCallFilter::failIfSet(std::uint32_t call, unsigned position, std::uint32_t bits,
                                 std::uint32_t error) {
  add(call, position, BPF_JSET, bits, error);
}

void SystemCallFilter::add(std::uint32_t call, unsigned position, std::uint16_t comparison,
                           std::uint32_t value, std::uint32_t error) {
  // Over the four instructions of this rule.
  program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4));
  program_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argumentOffset(position)));
  program_.push_back(
      BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | comparison | BPF_K), value, 0, 1));
  program_.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  program_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, numberOffset));
}

bool SystemCallFilter::install() {
  program_.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program_.size()), program_.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace test_support
