#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "modelsrv/model_part.h"
#include "servers/error.h"
#include "servers/recording.h"

namespace modelsrvd {

/// Parts of a model tree that are made of what a recording says of them. No system calls.

/// The error of a result; nothing for success.
[[nodiscard]] std::optional<Error> errorOf(ModelSrv::ModelRes result);

/// Whether both are parts of the same kind.
[[nodiscard]] bool haveSameShape(const RecordedPart& left, const RecordedPart& right);

/// A part of the type, access and elements of `part`, which is no node, with zero or empty values.
[[nodiscard]] std::unique_ptr<ModelSrv::ModelPart> createPart(ModelSrv::ModelPartId id,
                                                              const std::string& name,
                                                              const RecordedPart& part);

/// The index of the element with that index or name; nothing if there is none.
[[nodiscard]] std::optional<ModelSrv::ModelPartIndex> indexOf(const std::string& element,
                                                              const RecordedPart& part);

/// Sets the value of a part that `createPart` made of `shape`, or of an element. `texts` is not
/// empty.
[[nodiscard]] std::optional<Error> setTexts(ModelSrv::ModelPart& part, const RecordedPart& shape,
                                            ModelSrv::ModelPartIndex index,
                                            const std::vector<std::string>& texts);

}  // namespace modelsrvd
