#include "bindings/c/source/served_part.h"

#include <limits>
#include <string_view>
#include <utility>

#include "bindings/c/source/call.h"
#include "bindings/c/source/number_text.h"
#include "bindings/c/source/path.h"
#include "bindings/c/source/value_types.h"
#include "modelsrv/value_parts.h"

namespace treescope_c {

namespace {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelRes;

class ServedNode final : public ServedPart {
 public:
  ServedNode(ModelSrv::ModelPartId id, std::string_view name) : node_(id, name) {}
  ModelSrv::ModelPart& part() override { return node_; }
  ModelSrv::ModelNode* node() override { return &node_; }

 private:
  ModelSrv::ModelNode node_;
};

template <typename T>
double numberOf(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return std::numeric_limits<double>::quiet_NaN();
  } else {
    return static_cast<double>(value);
  }
}

/// The store check of a part that lets `callbacks` decide.
template <typename T>
ModelSrv::StoreCheckWithReason<T> checkOf(PartCallbacks& callbacks) {
  return [&callbacks](const T& value, ModelPartIndex index, std::string& reason) {
    const std::string text = valueText(value);
    treescope_store_request request{nullptr, fromIndex(index), text.c_str(), text.size(),
                                    numberOf(value)};
    return callbacks.checkStore(request, reason);
  };
}

/// Sets `value` to what `text` means for a part of its type.
template <typename T>
ModelRes parseValue(const std::string& text, T& value) {
  ModelSrv::ValuePart<T> parser(0, {});
  std::string reason;
  const ModelRes result = parser.store(text, true, ModelSrv::ModelPartIndex_All, reason);
  if (result == ModelSrv::ModelRes_Success) {
    value = parser.value();
  }
  return result;
}

template <typename T>
ModelRes takeReply(treescope_reply& reply, T& value) {
  if (auto* const text = std::get_if<std::string>(&reply.value)) {
    if constexpr (std::is_same_v<T, std::string>) {
      value = std::move(*text);
      return value.size() <= ModelSrv::ModelValueText_Max ? ModelSrv::ModelRes_Success
                                                          : ModelSrv::ModelRes_TooLarge;
    } else {
      return parseValue(*text, value);
    }
  }
  if (const auto* const number = std::get_if<double>(&reply.value)) {
    if constexpr (std::is_same_v<T, double>) {
      value = *number;
      return ModelSrv::ModelRes_Success;
    } else {
      return parseValue(numberText(*number), value);
    }
  }
  const auto* const integer = std::get_if<std::int64_t>(&reply.value);
  return integer == nullptr ? ModelSrv::ModelRes_NoValue : parseValue(numberText(*integer), value);
}

template <typename T>
class ServedValue final : public ServedPart {
 public:
  ServedValue(ModelSrv::ModelPartId id, std::string name, ModelSrv::ModelPartStatus status)
      : part_(id, std::move(name), T{}, status) {}

  ModelSrv::ModelPart& part() override { return part_; }

  treescope_result setChecked(PartCallbacks& callbacks, bool isChecked) override {
    part_.setStoreCheckWithReason(isChecked ? checkOf<T>(callbacks) : nullptr);
    return TREESCOPE_SUCCESS;
  }

  treescope_result setComputed(PartCallbacks& callbacks, bool isComputed) override {
    ModelSrv::ValueGetter<T> getter;
    if (isComputed) {
      getter = [&callbacks](T& value) {
        treescope_reply reply;
        const treescope_result result = callbacks.readValue(reply);
        return result == TREESCOPE_SUCCESS ? takeReply(reply, value)
                                           : toModelResult(result, ModelSrv::ModelRes_Unreachable);
      };
    }
    part_.setGetter(std::move(getter));
    return TREESCOPE_SUCCESS;
  }

  treescope_result notify() override {
    part_.notifyChange();
    return TREESCOPE_SUCCESS;
  }

 private:
  ModelSrv::ValuePart<T> part_;
};

template <typename T>
class ServedArray final : public ServedPart {
 public:
  ServedArray(ModelSrv::ModelPartId id, std::string name, std::size_t elements,
              std::vector<std::string> names, ModelSrv::ModelPartStatus status)
      : elements_(elements),
        part_(id, std::move(name), std::vector<T>(elements), std::move(names), status) {}

  ModelSrv::ModelPart& part() override { return part_; }
  [[nodiscard]] std::size_t elements() const override { return elements_; }

  treescope_result setChecked(PartCallbacks& callbacks, bool isChecked) override {
    part_.setStoreCheckWithReason(isChecked ? checkOf<T>(callbacks) : nullptr);
    return TREESCOPE_SUCCESS;
  }

 private:
  const std::size_t elements_;
  ModelSrv::ArrayPart<T> part_;
};

bool isName(const char* text) {
  return text != nullptr && std::string_view(text).size() <= ModelSrv::ModelName_Max;
}

/// Whether no name is missing, or so long that it would be truncated.
bool areNamesValid(const treescope_part_options& options) {
  for (std::size_t i = 0; options.element_names != nullptr && i < options.elements; ++i) {
    if (!isName(options.element_names[i])) {
      return false;
    }
  }
  return options.name == nullptr || isName(options.name);
}

bool isValid(const treescope_part_options& options) {
  const bool isNode = options.type == TREESCOPE_NODE;
  return options.id <= ModelSrv::ModelPartId_Max && options.access >= TREESCOPE_NO_ACCESS &&
         options.access <= TREESCOPE_LOADER_ONLY &&
         options.elements <= ModelSrv::ModelPartElements_Max &&
         (options.elements > 0 || options.element_names == nullptr) &&
         !(isNode && (options.elements > 0 || options.value != nullptr ||
                      options.access != TREESCOPE_NO_ACCESS)) &&
         areNamesValid(options);
}

}  // namespace

treescope_result ServedPart::setChecked(PartCallbacks& /*callbacks*/, bool /*isChecked*/) {
  return TREESCOPE_BAD_ARGUMENT;
}

treescope_result ServedPart::setComputed(PartCallbacks& /*callbacks*/, bool /*isComputed*/) {
  return TREESCOPE_BAD_ARGUMENT;
}

treescope_result ServedPart::notify() {
  return TREESCOPE_BAD_ARGUMENT;
}

std::unique_ptr<ServedPart> makeServedPart(const treescope_part_options& options) {
  if (!isValid(options)) {
    return nullptr;
  }
  std::string name = options.name == nullptr ? "" : options.name;
  if (options.type == TREESCOPE_NODE) {
    return std::make_unique<ServedNode>(options.id, std::move(name));
  }
  const auto status = options.access == TREESCOPE_NO_ACCESS
                          ? ModelSrv::ModelPartStatus_ReadWrite
                          : static_cast<ModelSrv::ModelPartStatus>(options.access);
  std::unique_ptr<ServedPart> made;
  static_cast<void>(visitType(options.type, [&]<typename T>() {
    if (options.elements == 0) {
      made = std::make_unique<ServedValue<T>>(options.id, std::move(name), status);
      return;
    }
    std::vector<std::string> names;
    if (options.element_names != nullptr) {
      names.assign(options.element_names, options.element_names + options.elements);
    }
    made = std::make_unique<ServedArray<T>>(options.id, std::move(name), options.elements,
                                            std::move(names), status);
  }));
  return made;
}

}  // namespace treescope_c
