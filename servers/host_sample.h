#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "servers/files.h"
#include "servers/host_text.h"

namespace modelsrvd {

/// The state of the machine at one time. What the kernel does not provide is empty
/// or 0.
struct HostSample {
  struct Core {
    unsigned number = 0;
    double usage = 0;  ///< percent since the previous sample, at first since boot
  };
  struct Interface {
    InterfaceCounts counts;
    std::uint32_t mtu = 0;
    bool up = false;
  };
  struct Disk {
    std::string mountPoint;
    DiskSpace space;
  };
  struct Zone {
    std::string name;
    double celsius = 0;
  };

  std::string name;
  std::string kernel;
  std::uint64_t uptime = 0;  ///< seconds
  LoadAverages load;
  std::vector<Core> cores;
  MemorySizes memory;
  std::vector<Disk> disks;
  std::vector<Interface> interfaces;
  std::uint32_t processes = 0;
  std::uint32_t running = 0;
  std::vector<Zone> zones;
};

/// Reads samples from the kernel's files. Never waits for another machine. For one
/// thread.
class HostSampler {
 public:
  explicit HostSampler(HostFiles files) : files_(std::move(files)) {}

  [[nodiscard]] HostSample sample();

 private:
  [[nodiscard]] std::string text(const std::string& path) const;
  void sampleCores(HostSample& sample);
  void sampleDisks(HostSample& sample) const;
  void sampleInterfaces(HostSample& sample) const;
  void sampleZones(HostSample& sample) const;

  HostFiles files_;
  std::map<unsigned, CoreTimes> previousCores_;
};

}  // namespace modelsrvd
