// A model server of one's own: a thermostat, whose room is simulated. It serves
//
//     /temperature  read-only array: inside, outside, in degrees Celsius
//     /setpoint     5 to 30 degrees; anything else is refused
//     /mode         "off" or "heat"
//
// until SIGINT or SIGTERM: "thermostat [NAME]", by default Model_thermostat.

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <iostream>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"

namespace {

EvtSrv::EventPortManager* pumped = nullptr;
volatile std::sig_atomic_t ending = 0;

void end(int /*signal*/) {
  ending = 1;
  pumped->wake();
}

}  // namespace

int main(int argc, char* argv[]) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Void, false);
  pumped = &manager;
  std::signal(SIGINT, end);
  std::signal(SIGTERM, end);

  ModelSrv::ArrayPart<double> temperature(1, "temperature", {18.5, 4}, {"inside", "outside"},
                                          ModelSrv::ModelPartStatus_ReadOnly);
  ModelSrv::ValuePart<double> setpoint(2, "setpoint", 20.5);
  setpoint.setStoreCheck([](const double& wanted, ModelSrv::ModelPartIndex) {
    return wanted >= 5 && wanted <= 30 ? ModelSrv::ModelRes_Success : ModelSrv::ModelRes_Vetoed;
  });
  ModelSrv::ValuePart<std::string> mode(3, "mode", "off");
  mode.setStoreCheck([](const std::string& wanted, ModelSrv::ModelPartIndex) {
    const bool known = wanted == "off" || wanted == "heat";
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
  while (ending == 0) {
    static_cast<void>(manager.receiveEvent(200));
    if (std::chrono::steady_clock::now() >= next) {
      next += std::chrono::seconds(1);
      const double inside = temperature.value(0);
      const double drawn = mode.value() == "heat" ? setpoint.value() : temperature.value(1);
      static_cast<void>(temperature.setValue(0, inside + (drawn - inside) / 16));
    }
  }
  root.stop(true);
  return 0;
}
