#pragma once

#include <cstdint>
#include <string>

namespace treescope {

/// The two ways of saying which element of an array is meant.
///
/// Two types, so that a name is never taken for a number. An empty text means no
/// element in particular.

/// An element by its name.
struct ElementName {
  std::string text;
};

/// An element by its index as somebody wrote it.
struct ElementIndexText {
  std::string text;
};

/// The index that `element` stands for, read as a number at the beginning of its
/// text the way streams read one: what follows is ignored, what is no number gives
/// 0. `ModelPartIndex_Void`, which no element has, where the number does not fit
/// or would mean the whole value.
[[nodiscard]] std::uint16_t elementIndex(const ElementIndexText& element);

}  // namespace treescope
