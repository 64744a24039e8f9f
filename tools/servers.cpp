#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "tools/commands.h"
#include "tools/discovery.h"
#include "tools/json_object.h"
#include "tools/mailbox_watch.h"

namespace treectl {

namespace {

using Clock = std::chrono::steady_clock;

std::string_view stateName(ModelSrv::ModelRes result) {
  switch (result) {
    case ModelSrv::ModelRes_Success:
      return "up";
    case ModelSrv::ModelRes_NotPermitted:
      return "denied";
    case ModelSrv::ModelRes_Timeout:
      return "hung";
    default:
      return "dead";
  }
}

struct Probe {
  std::string server;
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NotConnected;
};

void probe(Probe& target, double limit) {
  Connection connection(limit, false);
  target.result = connection.open(target.server);
}

/// Probes some servers at the same time, since each that hangs takes the time limit.
void probeAll(std::vector<Probe>& probes, double limit) {
  constexpr std::size_t atOnce = 16;
  for (std::size_t first = 0; first < probes.size(); first += atOnce) {
    const std::size_t end = std::min(first + atOnce, probes.size());
    std::vector<std::thread> threads;
    for (std::size_t i = first + 1; i < end; ++i) {
      try {
        threads.emplace_back(probe, std::ref(probes[i]), limit);
      } catch (const std::system_error&) {
        probe(probes[i], limit);
      }
    }
    probe(probes[first], limit);
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

/// Waits until all `servers` are up; the first that is not when the time is over.
std::string awaitServers(std::vector<std::string> servers, double limit) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(limit));
  MailboxWatch mailboxes;
  while (true) {
    const double left = std::chrono::duration<double>(deadline - Clock::now()).count();
    std::erase_if(servers, [&](const std::string& server) {
      Probe target{server};
      probe(target, std::clamp(left, 0.05, defaultLimit));
      return target.result == ModelSrv::ModelRes_Success;
    });
    if (servers.empty() || left <= 0) {
      return servers.empty() ? std::string() : servers.front();
    }
    mailboxes.wait(std::min(left, 0.5));
  }
}

}  // namespace

void runServers(Context& context) {
  const double limit = context.requestLimit();
  if (!context.options().waitFor.empty()) {
    const std::string missing = awaitServers(context.options().waitFor, limit);
    if (!missing.empty()) {
      context.fail(Status::timeout, missing, "not up in time");
      return;
    }
  }
  std::vector<Probe> probes;
  for (std::string& name : discoverServers()) {
    probes.push_back({std::move(name)});
  }
  probeAll(probes, limit);
  std::string& out = context.output().text();
  for (const Probe& target : probes) {
    if (context.options().json) {
      JsonObject object(out);
      object.addText("server", target.server);
      object.addText("state", stateName(target.result));
      object.end();
    } else {
      out += target.server;
      out += '\t';
      out += stateName(target.result);
    }
    out += '\n';
  }
}

}  // namespace treectl
