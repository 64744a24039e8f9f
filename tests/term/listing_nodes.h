#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "term/listing_node.h"

namespace treescope::test {

/// Appends a child to `parent`; what is not given is missing or unmarked.
inline ListingNode& add(ListingNode& parent, std::optional<std::string> name,
                        std::optional<std::string> value = {}, std::uint32_t subscribed = 0,
                        std::uint32_t kind = 0) {
  ListingNode& child = parent.addChild();
  child.name = std::move(name);
  child.value = std::move(value);
  child.subscribedMark = subscribed;
  child.kindMark = kind;
  return child;
}

}  // namespace treescope::test
