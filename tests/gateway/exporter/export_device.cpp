// An exporter in a process of its own, for tests that kill it.
//
//     export_device URL DEVICE SERVER
//
// It exports SERVER of the fleet "f" with stores allowed everywhere, and prints "ready".

#include <cstdio>
#include <exception>

#include "gateway/exporter/exporter.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  try {
    std::string error;
    modelgate::ExporterOptions options;
    options.link.broker = modelgate::parseBroker(argv[1], error).value();
    options.fleet = "f";
    options.device = argv[2];
    options.servers = {argv[3]};
    options.allowSet = {"/"};
    options.log = [](std::string_view line, bool) {
      std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    };
    options.ready = [] {
      std::puts("ready");
      std::fflush(stdout);
    };
    modelgate::EventLoop loop;
    modelgate::Exporter exporter(loop, options);
    exporter.start();
    loop.run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
