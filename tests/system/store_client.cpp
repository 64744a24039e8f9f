#include <cstdlib>
#include <iostream>
#include <string>

#include "tests/support/tree_client.h"

// store_client SERVER OWN COMMON COUNT: stores 1 to COUNT in the part at the path OWN and
// reads each back, and stores and reads the part at COMMON, which other clients store too.
// Prints "done" or the first error.

namespace {

int work(const std::string& server, const std::string& own, const std::string& common, int count) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  test_support::TreeClient client(manager, server);
  for (int value = 1; value <= count; ++value) {
    const std::string text = std::to_string(value);
    if (client.store(own, text) != ModelSrv::ModelRes_Success) {
      std::cout << "store " << text << " failed\n";
      return 1;
    }
    if (const std::string read = client.get(own); read != text) {
      std::cout << "stored " << text << ", read \"" << read << "\"\n";
      return 1;
    }
    const bool stored = client.store(common, text) == ModelSrv::ModelRes_Success;
    const std::string shared = client.get(common);
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
  return work(argv[1], argv[2], argv[3], std::atoi(argv[4]));
}
