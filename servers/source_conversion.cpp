#include "servers/source_conversion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

namespace modelsrvd {

namespace {

using Shape = SimulationSpec::Shape;

constexpr std::array<std::pair<std::string_view, Shape>, 4> shapeNames{{{"ramp", Shape::ramp},
                                                                        {"sine", Shape::sine},
                                                                        {"noise", Shape::noise},
                                                                        {"steps", Shape::steps}}};

constexpr std::uint32_t minSourcePeriod = 10;
constexpr std::uint32_t maxSourcePeriod = 24 * 60 * 60 * 1000;

/// Reads the keys of a source one after the other until one is wrong.
class SourceKeys {
 public:
  explicit SourceKeys(const RawEntry& raw) : raw_(raw) {}

  [[nodiscard]] const std::optional<EntryError>& error() const { return error_; }

  const Scalar* find(Key key) {
    const auto found = raw_.scalars.find(key);
    return error_ || found == raw_.scalars.end() ? nullptr : &found->second;
  }

  void fail(Key key, std::string text) {
    error_ = EntryError{'/' + std::string(nameOf(key)), std::move(text)};
  }

  void forbid(std::initializer_list<Key> keys, std::string_view text) {
    for (const Key key : keys) {
      if (find(key) != nullptr) {
        fail(key, std::string(text));
      }
    }
  }

  void readPeriod(Key key, std::uint32_t& period) {
    const Scalar* const scalar = find(key);
    if (scalar == nullptr) {
      return;
    }
    const auto* number = std::get_if<std::uint64_t>(scalar);
    if (number == nullptr || *number < minSourcePeriod || *number > maxSourcePeriod) {
      fail(key, "expected milliseconds from " + std::to_string(minSourcePeriod) + " to " +
                    std::to_string(maxSourcePeriod) + ", got " + toJson(*scalar));
      return;
    }
    period = static_cast<std::uint32_t>(*number);
  }

  void readNumber(Key key, double& target) {
    const Scalar* const scalar = find(key);
    if (scalar == nullptr) {
      return;
    }
    auto value = toEntryValue(*scalar, EntryType::float64);
    if (const auto* wrong = std::get_if<Error>(&value)) {
      fail(key, wrong->text);
      return;
    }
    target = std::get<double>(std::get<EntryValue>(value));
  }

 private:
  const RawEntry& raw_;
  std::optional<EntryError> error_;
};

void readFile(SourceKeys& keys, EntryType type, EntryDetails& details) {
  FileSpec file;
  const Scalar* const scalar = keys.find(Key::file);
  if (scalar == nullptr) {
    return;
  }
  const auto* path = std::get_if<std::string>(scalar);
  if (path == nullptr || !path->starts_with('/') || path->find('\0') != std::string::npos) {
    keys.fail(Key::file, "expected an absolute path, got " + toJson(*scalar));
    return;
  }
  file.path = *path;
  keys.forbid({Key::interval, Key::seed}, "not allowed together with \"file\"");
  keys.readPeriod(Key::period, file.period);
  if (!isNumber(type)) {
    keys.forbid({Key::scale, Key::offset}, "not allowed for " + std::string(nameOf(type)));
  }
  keys.readNumber(Key::scale, file.scale);
  keys.readNumber(Key::offset, file.offset);
  if (file.scale == 0) {
    keys.fail(Key::scale, "expected a number that is not 0");
  }
  details.file = std::move(file);
}

void checkSimulatedType(SourceKeys& keys, EntryType type, Shape shape,
                        const EntryDetails& details) {
  const bool hasChoices = !details.attributes.choices.empty();
  if (shape == Shape::steps && type == EntryType::text && !hasChoices) {
    keys.fail(Key::simulate, "requires \"choices\" for text");
  }
  if (shape != Shape::steps && (!isNumber(type) || hasChoices)) {
    keys.fail(Key::simulate, std::string("expected \"steps\" for ") +
                                 (hasChoices ? "a value with choices" : std::string(nameOf(type))));
  }
}

void readSimulation(SourceKeys& keys, Entry& entry, EntryDetails& details) {
  SimulationSpec simulation;
  const Scalar* const scalar = keys.find(Key::simulate);
  const auto* name = std::get_if<std::string>(scalar);
  const auto* const found =
      std::find_if(shapeNames.begin(), shapeNames.end(),
                   [name](const auto& shape) { return name && shape.first == *name; });
  if (found == shapeNames.end()) {
    keys.fail(Key::simulate,
              "expected " + std::string(expectedFor(Key::simulate)) + ", got " + toJson(*scalar));
    return;
  }
  simulation.shape = found->second;
  checkSimulatedType(keys, entry.type, simulation.shape, details);
  if (details.attributes.minimum.empty() != details.attributes.maximum.empty()) {
    keys.fail(Key::simulate, R"(requires both "minimum" and "maximum", or neither)");
  }
  keys.forbid({Key::scale, Key::offset}, "not allowed together with \"simulate\"");
  keys.readPeriod(Key::period, simulation.period);
  keys.readPeriod(Key::interval, simulation.interval);
  if (const Scalar* const seed = keys.find(Key::seed)) {
    const auto* number = std::get_if<std::uint64_t>(seed);
    if (number == nullptr) {
      keys.fail(Key::seed, "expected an integer from 0, got " + toJson(*seed));
    } else {
      simulation.seed = *number;
    }
  }
  entry.access = ModelSrv::ModelPartStatus_ReadOnly;
  details.simulation = simulation;
}

EntryValue defaultValue(EntryType type) {
  return visitValueType(type, []<typename T>() -> EntryValue {
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, std::string>) {
      return T{};
    } else if constexpr (std::is_floating_point_v<T>) {
      return 0.0;
    } else if constexpr (std::is_signed_v<T>) {
      return std::int64_t{0};
    } else {
      return std::uint64_t{0};
    }
  });
}

}  // namespace

std::optional<EntryError> convertSource(const RawEntry& raw, Entry& entry, EntryDetails& details) {
  SourceKeys keys(raw);
  const bool isFile = keys.find(Key::file) != nullptr;
  if (!isFile && keys.find(Key::simulate) == nullptr) {
    keys.forbid({Key::period, Key::interval, Key::scale, Key::offset, Key::seed},
                R"(requires "file" or "simulate")");
    return keys.error();
  }
  if (!entry.values.empty()) {
    const Key source = isFile ? Key::file : Key::simulate;
    keys.fail(source, std::string("not allowed together with ") +
                          (entry.array ? R"("elements")" : R"("value")"));
    return keys.error();
  }
  if (isFile) {
    keys.forbid({Key::simulate}, R"(not allowed together with "file")");
    readFile(keys, entry.type, details);
  } else {
    readSimulation(keys, entry, details);
  }
  entry.values.push_back(defaultValue(entry.type));
  return keys.error();
}

}  // namespace modelsrvd
