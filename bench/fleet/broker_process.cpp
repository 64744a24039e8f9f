#include "bench/fleet/broker_process.h"

#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace bench {

void BrokerProcess::start() {
  process_ = std::make_unique<Child>([this] {
    ::execlp("mosquitto", "mosquitto", "-c", configFile_.c_str(), static_cast<char*>(nullptr));
  });
}

void BrokerProcess::kill() {
  ::kill(process_->pid(), SIGKILL);
  process_.reset();
}

std::size_t BrokerProcess::memory() const {
  if (!process_) {
    return 0;
  }
  std::ifstream status("/proc/" + std::to_string(process_->pid()) + "/status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    std::size_t size = 0;
    if (words >> name >> size && name == "VmRSS:") {
      return size;
    }
  }
  return 0;
}

}  // namespace bench
