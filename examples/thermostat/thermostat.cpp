// A model server for a simulated thermostat. It publishes
//     /temperature  read-only array: inside, outside, in degrees Celsius
//     /setpoint     5 to 30 degrees; other values are refused
//     /mode         "off" or "heat"; other values are refused
// until SIGINT or SIGTERM. Usage: "thermostat [NAME]", by default Model_thermostat.

#include <chrono>
#include <csignal>
#include <iostream>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "modelsrv/value_parts.h"

using namespace ModelSrv;
using Clock = std::chrono::steady_clock;

EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int /*signal*/) {
  stopRequested = 1;
  manager.wake();
}

int main(int argc, char* argv[]) {
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);

  ArrayPart<double> temperature(1, "temperature", {18.5, 4}, {"inside", "outside"},
                                ModelPartStatus_ReadOnly);
  ValuePart<double> setpoint(2, "setpoint", 20.5);
  ValuePart<std::string> mode(3, "mode", "off");
  ModelRoot root(&manager);
  const std::string name = argc > 1 ? argv[1] : "Model_thermostat";
  ModelRes result = setpoint.setAttributes({"degrees", "5", "30", "", {}});
  result =
      result == ModelRes_Success ? mode.setAttributes({"", "", "", "", {"off", "heat"}}) : result;
  result = result == ModelRes_Success ? root.setChildren({&temperature, &setpoint, &mode}) : result;
  result = result == ModelRes_Success ? root.startAsServer(name) : result;
  if (result != ModelRes_Success) {
    std::cerr << "thermostat: " << name << ": " << describe(result) << '\n';
    return 1;
  }
  if (!(std::cout << "ready " << name << std::endl)) {
    return 1;
  }
  for (auto next = Clock::now(); stopRequested == 0;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    static_cast<void>(manager.receiveEvent(left > 0 ? static_cast<int>(left) : 0));
    if (Clock::now() >= next) {
      next += std::chrono::seconds(1);
      const double inside = temperature.value(0);
      const double target = mode.value() == "heat" ? setpoint.value() : temperature.value(1);
      static_cast<void>(temperature.setValue(0, inside + (target - inside) / 16));
    }
  }
}
