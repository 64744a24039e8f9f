#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "tests/system/sample_client.h"

// store_client SERVER OWN COMMON COUNT: stores 1 to COUNT in the part OWN and reads
// each back, and stores and reads the part COMMON, which other clients store too.
// Prints "done" or the first error.

namespace {

int work(const std::string& server, ModelSrv::ModelPartId own, ModelSrv::ModelPartId common,
         int count) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  SampleClient client(manager, server);
  for (int value = 1; value <= count; ++value) {
    const std::string text = std::to_string(value);
    if (!client.store(own, text)) {
      std::cout << "store " << text << " failed\n";
      return 1;
    }
    if (const std::string read = client.read(own); read != text) {
      std::cout << "stored " << text << ", read \"" << read << "\"\n";
      return 1;
    }
    const bool stored = client.store(common, text);
    const std::string shared = client.read(common);
    const int number = std::atoi(shared.c_str());
    if (!stored || number < 1 || number > count) {
      std::cout << "the common part holds \"" << shared << "\"\n";
      return 1;
    }
  }
  std::cout << "done\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    return 2;
  }
  try {
    return work(argv[1], static_cast<ModelSrv::ModelPartId>(std::atoi(argv[2])),
                static_cast<ModelSrv::ModelPartId>(std::atoi(argv[3])), std::atoi(argv[4]));
  } catch (const std::exception& error) {
    std::cout << error.what() << '\n';
    return 1;
  }
}
