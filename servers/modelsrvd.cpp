#include <cstddef>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "servers/files.h"
#include "servers/options.h"
#include "servers/server.h"

namespace {

using modelsrvd::ExitStatus;

ExitStatus print(const std::string& text) {
  if (const auto error = modelsrvd::writeOutput(text)) {
    modelsrvd::printError(*error);
    return ExitStatus::cannotServe;
  }
  return ExitStatus::success;
}

ExitStatus runProgram(const std::vector<std::string_view>& words) {
  const auto result = modelsrvd::parseOptions(words);
  if (const auto* error = std::get_if<modelsrvd::Error>(&result)) {
    modelsrvd::printError(*error);
    return ExitStatus::badUsage;
  }
  const auto& options = std::get<modelsrvd::Options>(result);
  if (options.help) {
    return print(modelsrvd::usageText());
  }
  if (options.version) {
    return print("modelsrvd " MODELSRVD_VERSION "\n");
  }
  return modelsrvd::serve(options);
}

}  // namespace

int main(int argc, char** argv) {
  if (!modelsrvd::fillStandardStreams()) {
    return static_cast<int>(ExitStatus::cannotServe);
  }
  try {
    const std::vector<std::string_view> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    return static_cast<int>(runProgram(words));
  } catch (const std::bad_alloc&) {
    modelsrvd::printError({"out of memory"});
    return static_cast<int>(ExitStatus::cannotServe);
  }
}
