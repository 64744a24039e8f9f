#include "servers/host_sample.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace modelsrvd {

namespace {

bool isProcess(const std::string& name) {
  return name.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string HostSampler::text(const std::string& path) const {
  return files_.read(path).value_or(std::string{});
}

HostSample HostSampler::sample() {
  HostSample sample;
  sample.name = firstLine(text("/proc/sys/kernel/hostname"));
  sample.kernel = firstLine(text("/proc/sys/kernel/osrelease"));
  sample.uptime = parseUptime(text("/proc/uptime"));
  sample.load = parseLoad(text("/proc/loadavg"));
  sample.memory = parseMemory(text("/proc/meminfo"));
  const std::vector<std::string> names = files_.list("/proc");
  sample.processes =
      static_cast<std::uint32_t>(std::count_if(names.begin(), names.end(), isProcess));
  sampleCores(sample);
  sampleDisks(sample);
  sampleInterfaces(sample);
  sampleZones(sample);
  return sample;
}

void HostSampler::sampleCores(HostSample& sample) {
  CpuStatus status = parseCpuStatus(text("/proc/stat"));
  sample.running = status.running;
  for (const auto& [number, times] : status.cores) {
    sample.cores.push_back({number, usagePercent(previousCores_[number], times)});
  }
  previousCores_ = std::move(status.cores);
}

void HostSampler::sampleDisks(HostSample& sample) const {
  for (std::string& mountPoint : parseLocalMounts(text("/proc/self/mounts"))) {
    // A file system without blocks has no storage behind it.
    if (const auto space = files_.diskSpace(mountPoint); space && space->size != 0) {
      sample.disks.push_back({std::move(mountPoint), *space});
    }
  }
}

void HostSampler::sampleInterfaces(HostSample& sample) const {
  constexpr std::int64_t upFlag = 0x1;  // IFF_UP, netdevice(7)
  for (InterfaceCounts& counts : parseInterfaces(text("/proc/self/net/dev"))) {
    const std::string directory = "/sys/class/net/" + counts.name;
    HostSample::Interface interface;
    interface.mtu = static_cast<std::uint32_t>(parseNumberText(text(directory + "/mtu")));
    interface.up = (parseNumberText(text(directory + "/flags")) & upFlag) != 0;
    interface.counts = std::move(counts);
    sample.interfaces.push_back(std::move(interface));
  }
}

void HostSampler::sampleZones(HostSample& sample) const {
  const std::string directory = "/sys/class/thermal";
  for (const std::string& name : files_.list(directory)) {
    if (name.rfind("thermal_zone", 0) != 0) {
      continue;
    }
    // Reading a zone fails while its sensor is off.
    const auto millidegrees =
        files_.read(std::string(directory).append("/").append(name).append("/temp"));
    if (millidegrees && !millidegrees->empty()) {
      sample.zones.push_back({name, static_cast<double>(parseNumberText(*millidegrees)) / 1000});
    }
  }
}

}  // namespace modelsrvd
