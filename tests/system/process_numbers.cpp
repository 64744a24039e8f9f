#include "tests/system/process_numbers.h"

#include <gtest/gtest.h>

#include <fstream>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED
#endif
#endif
#if defined(SANITIZED) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool ownMemory = false;
#else
const bool ownMemory = true;
#endif

long procNumber(int pid, const std::string& file, const std::string& key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
  for (std::string word; in >> word;) {
    if (word == key) {
      long number = -1;
      in >> number;
      return number;
    }
  }
  ADD_FAILURE() << key << " is not in " << file;
  return -1;
}
