#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "modelsrv/part_description.h"

namespace modelsrvd {

/// A value that is in a file.
struct FileSpec {
  std::string path;
  std::uint32_t period = 0;  ///< milliseconds between two reads; 0: when the file is changed
  double scale = 1;          ///< the value is that in the file times `scale` plus `offset`
  double offset = 0;
};

/// A value that is calculated from the time.
struct SimulationSpec {
  enum class Shape : std::uint8_t { ramp, sine, noise, steps };
  Shape shape = Shape::ramp;
  std::uint32_t period = 60000;   ///< of a cycle, in milliseconds
  std::uint32_t interval = 1000;  ///< milliseconds between two values
  std::uint64_t seed = 0;
};

/// What an entry may have beyond its type and values. Most entries have nothing of it.
struct EntryDetails {
  ModelSrv::PartAttributes attributes;
  std::optional<FileSpec> file;
  std::optional<SimulationSpec> simulation;
};

}  // namespace modelsrvd
