#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "treescope.h"

namespace treescope_c {

/// One allocation of malloc(3) that is filled from front to back: first the structures, then the
/// texts that they point to. A C program releases it with one free(3). For one thread.
class Block {
 public:
  /// Of at least `size` bytes, all zero. Throws `std::bad_alloc`.
  explicit Block(std::size_t size)
      : memory_(static_cast<char*>(std::calloc(1, size == 0 ? 1 : size))), next_(memory_.get()) {
    if (memory_ == nullptr) {
      throw std::bad_alloc();
    }
  }

  /// The next `count` objects. The caller takes those with pointers before the texts, which need no
  /// alignment.
  template <typename T>
  T* take(std::size_t count) {
    T* const objects = reinterpret_cast<T*>(next_);
    next_ += count * sizeof(T);
    return objects;
  }

  /// The bytes that `text` takes.
  static std::size_t sizeOf(std::string_view text) { return text.size() + 1; }

  /// A copy of `text` with a zero byte after it.
  const char* text(std::string_view text) {
    char* const copy = next_;
    if (!text.empty()) {
      std::memcpy(copy, text.data(), text.size());
    }
    next_ += sizeOf(text);
    return copy;
  }
  treescope_bytes bytes(std::string_view content) { return {text(content), content.size()}; }

  /// The whole block, for the C program.
  template <typename T>
  T* release() {
    return reinterpret_cast<T*>(memory_.release());
  }

 private:
  struct Free {
    void operator()(char* memory) const { std::free(memory); }
  };

  std::unique_ptr<char, Free> memory_;
  char* next_;
};

/// `content` as a block of its own.
inline char* textBlock(std::string_view content) {
  Block block(Block::sizeOf(content));
  static_cast<void>(block.text(content));
  return block.release<char>();
}

}  // namespace treescope_c
