#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "term/listing_node.h"
#include "term/screen_printer.h"
#include "tests/support/captured_output.h"

// What the tests of listings share.

namespace treescope::test {

/// Appends a child to `parent`. Texts that are not passed are missing, and marks are 0.
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

/// The bytes that `listing` prints with a terminal of `columns` columns.
template <typename Listing>
std::string shown(int columns, bool batch, Listing listing) {
  test_support::CapturedOutput output;
  ScreenPrinter printer(0, batch,
                        {.columns = [columns] { return columns; }, .rows = [] { return 24; }});
  EXPECT_TRUE(listing(printer));
  return output.take();
}

}  // namespace treescope::test
