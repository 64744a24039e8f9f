#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"

/// The paths of the C interface.
namespace treescope_c {

using IdChain = std::vector<ModelSrv::ModelPartId>;

/// A path as text, taken apart: "/drive/#3[1]".
struct Path {
  struct Step {
    std::string_view name;                    ///< empty if there is an id
    std::optional<ModelSrv::ModelPartId> id;  ///< of "#3"
  };
  std::vector<Step> steps;  ///< from the root down; the names refer to the text
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
};

/// Nothing if the index is above 65,533 or an id above 65,535.
[[nodiscard]] std::optional<Path> parsePath(std::string_view text);

/// The path of ids only of a part and an index.
[[nodiscard]] std::string idPath(const IdChain& chain, ModelSrv::ModelPartIndex index);

/// Makes `text` the path of ids only of a part.
void setIdPath(std::span<const ModelSrv::ModelPartId> chain, std::string& text);

/// An index of a C program: TREESCOPE_ALL or 0 to 65,533. Nothing for other numbers.
[[nodiscard]] std::optional<ModelSrv::ModelPartIndex> toIndex(int index);

/// An index as the C interface has it.
[[nodiscard]] int fromIndex(ModelSrv::ModelPartIndex index);

}  // namespace treescope_c
