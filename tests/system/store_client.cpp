#include <cstdlib>
#include <iostream>
#include <string>

#include "tests/support/process.h"
#include "tests/support/tree_client.h"

// store_client SERVER OWN COMMON COUNT: stores 1 to COUNT in the part at the path OWN and
// reads each back, and stores and reads the part at COMMON, which other clients store too.
// Prints "done" or the first error. On a full machine a request may time out: it is repeated.

namespace {

int work(const std::string& server, const std::string& own, const std::string& common, int count) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  test_support::TreeClient client(manager, server);
  for (int value = 1; value <= count; ++value) {
    const std::string text = std::to_string(value);
    const auto stores = [&](const std::string& path) {
      return test_support::eventually(
          [&] { return client.store(path, text) == ModelSrv::ModelRes_Success; });
    };
    const auto readOf = [&](const std::string& path) {
      std::string held;
      test_support::eventually([&] {
        held = client.get(path);
        return !held.starts_with('<');
      });
      return held;
    };
    if (!stores(own)) {
      std::cout << "store " << text << " failed\n";
      return 1;
    }
    if (const std::string read = readOf(own); read != text) {
      std::cout << "stored " << text << ", read \"" << read << "\"\n";
      return 1;
    }
    const bool stored = stores(common);
    const std::string shared = readOf(common);
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
