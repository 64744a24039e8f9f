#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

/// The tree that the server of these tests serves.
namespace fault {

inline constexpr ModelSrv::ModelPartId counterId = 1;
inline constexpr ModelSrv::ModelPartId textId = 2;
/// A node with `manyParts` counters of the ids 0 and up.
inline constexpr ModelSrv::ModelPartId manyId = 3;
inline constexpr unsigned manyParts = 1000;

/// The value that `ServedTree::changeMany` leaves in part `id` after `changes`.
inline std::uint32_t lastOfMany(unsigned id, unsigned changes) {
  return (changes - 1 - id) / manyParts * manyParts + id + 1;
}

/// A text of `size` printable bytes. The pattern changes every 64 KiB.
inline std::string patternText(std::size_t size) {
  std::string text(size, 'x');
  for (std::size_t i = 0; i < size; ++i) {
    text[i] = static_cast<char>('!' + i % 89 + (i >> 16U) % 5);
  }
  return text;
}

struct ServedTree {
  explicit ServedTree(ModelSrv::ModelRoot& root)
      : counter(counterId, "counter"), text(textId, "text"), many(manyId, "many") {
    static_cast<void>(root.add(&counter));
    static_cast<void>(root.add(&text));
    static_cast<void>(root.add(&many));
    for (unsigned id = 0; id < manyParts; ++id) {
      parts.push_back(std::make_unique<ModelSrv::ValuePart<std::uint32_t>>(
          static_cast<ModelSrv::ModelPartId>(id), "part"));
      static_cast<void>(many.add(parts.back().get()));
    }
  }

  /// Sets the parts of `many` to the values 1 to `changes`, in turn.
  void changeMany(unsigned changes) {
    for (unsigned i = 0; i < changes; ++i) {
      static_cast<void>(parts[i % manyParts]->setValue(i + 1));
    }
  }

  ModelSrv::ValuePart<std::uint64_t> counter;
  ModelSrv::ValuePart<std::string> text;
  ModelSrv::ModelNode many;
  std::vector<std::unique_ptr<ModelSrv::ValuePart<std::uint32_t>>> parts;
};

}  // namespace fault
