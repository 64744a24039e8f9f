#include "servers/recorded_part.h"

#include <charconv>
#include <cstddef>

#include "modelsrv/value_parts.h"

namespace modelsrvd {

using ModelSrv::ModelPart;
using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;

std::optional<Error> errorOf(ModelRes result) {
  return result == ModelRes_Success ? std::nullopt
                                    : std::optional(Error{ModelSrv::describe(result)});
}

bool haveSameShape(const RecordedPart& left, const RecordedPart& right) {
  return left.type == right.type && left.access == right.access && left.elements == right.elements;
}

std::unique_ptr<ModelPart> createPart(ModelSrv::ModelPartId id, const std::string& name,
                                      const RecordedPart& part) {
  return visitValueType(part.type, [&]<typename T>() -> std::unique_ptr<ModelPart> {
    if (part.elements == 0) {
      return std::make_unique<ModelSrv::ValuePart<T>>(id, name, T(), part.access);
    }
    return std::make_unique<ModelSrv::ArrayPart<T>>(
        id, name, std::vector<T>(static_cast<std::size_t>(part.elements)), part.elementNames,
        part.access);
  });
}

std::optional<ModelPartIndex> indexOf(const std::string& element, const RecordedPart& part) {
  std::uint64_t index = 0;
  const char* const end = element.data() + element.size();
  const auto read = std::from_chars(element.data(), end, index);
  if (read.ec == std::errc{} && read.ptr == end && index < part.elements) {
    return static_cast<ModelPartIndex>(index);
  }
  for (std::size_t i = 0; i < part.elementNames.size() && i < part.elements; ++i) {
    if (part.elementNames[i] == element) {
      return static_cast<ModelPartIndex>(i);
    }
  }
  return std::nullopt;
}

std::optional<Error> setTexts(ModelPart& part, const RecordedPart& shape, ModelPartIndex index,
                              const std::vector<std::string>& texts) {
  const bool isWholeArray = index == ModelPartIndex_All && shape.elements != 0;
  if (shape.type == EntryType::text) {
    // As they are: a store would take some texts for counted or joined ones.
    if (isWholeArray) {
      return errorOf(static_cast<ModelSrv::ArrayPart<std::string>&>(part).setValues(texts));
    }
    return errorOf(
        shape.elements != 0
            ? static_cast<ModelSrv::ArrayPart<std::string>&>(part).setValue(index, texts.front())
            : static_cast<ModelSrv::ValuePart<std::string>&>(part).setValue(texts.front()));
  }
  std::string joined = texts.front();
  for (std::size_t i = 1; i < texts.size(); ++i) {
    joined += '\n';
    joined += texts[i];
  }
  std::string reason;
  const ModelRes result = part.store(joined, true, index, reason);
  return result == ModelRes_Success
             ? std::nullopt
             : std::optional(Error{reason.empty() ? ModelSrv::describe(result) : reason});
}

}  // namespace modelsrvd
