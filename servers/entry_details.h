#pragma once

#include <memory>

#include "modelsrv/part_description.h"

namespace modelsrvd {

/// What an entry may have beyond its type and values. Most entries have nothing of it.
struct EntryDetails {
  ModelSrv::PartAttributes attributes;

  bool operator==(const EntryDetails&) const = default;
};

}  // namespace modelsrvd
