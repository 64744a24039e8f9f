// A model server for a simulated thermostat. It publishes
//
//     /temperature  read-only array: inside, outside, in degrees Celsius
//     /setpoint     5 to 30 degrees; other values are rejected
//     /mode         "off" or "heat"; other values are rejected
//
// until SIGINT or SIGTERM. Usage: "thermostat [NAME]", by default Model_thermostat.

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <iostream>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

namespace {

EvtSrv::EventPortManager* managerToWake = nullptr;
volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int /*signal*/) {
  stopRequested = 1;
  managerToWake->wake();
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Void, false);
  managerToWake = &manager;
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);

  ModelSrv::ArrayPart<double> temperature(1, "temperature", {18.5, 4}, {"inside", "outside"},
                                          ModelSrv::ModelPartStatus_ReadOnly);
  ModelSrv::ValuePart<double> setpoint(2, "setpoint", 20.5);
  setpoint.setStoreCheck([](const double& value, ModelSrv::ModelPartIndex) {
    return value >= 5 && value <= 30 ? ModelSrv::ModelRes_Success : ModelSrv::ModelRes_Vetoed;
  });
  ModelSrv::ValuePart<std::string> mode(3, "mode", "off");
  mode.setStoreCheck([](const std::string& value, ModelSrv::ModelPartIndex) {
    const bool known = value == "off" || value == "heat";
    return known ? ModelSrv::ModelRes_Success : ModelSrv::ModelRes_Vetoed;
  });

  ModelSrv::ModelRoot root(&manager);
  const std::string name = argc > 1 ? argv[1] : "Model_thermostat";
  ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
  const std::initializer_list<ModelSrv::ModelPart*> parts{&temperature, &setpoint, &mode};
  for (ModelSrv::ModelPart* part : parts) {
    result = result == ModelSrv::ModelRes_Success ? root.add(part) : result;
  }
  result = result == ModelSrv::ModelRes_Success ? root.startAsServer(name) : result;
  if (result != ModelSrv::ModelRes_Success) {
    std::cerr << "thermostat: " << name << ": " << ModelSrv::describe(result) << '\n';
    return 1;
  }
  std::cout << "ready " << name << std::endl;

  auto next = std::chrono::steady_clock::now();
  while (stopRequested == 0) {
    static_cast<void>(manager.receiveEvent(200));
    if (std::chrono::steady_clock::now() >= next) {
      next += std::chrono::seconds(1);
      const double inside = temperature.value(0);
      const double target = mode.value() == "heat" ? setpoint.value() : temperature.value(1);
      static_cast<void>(temperature.setValue(0, inside + (target - inside) / 16));
    }
  }
  root.stop(true);
  return 0;
}
