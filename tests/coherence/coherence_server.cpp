#include <atomic>
#include <iostream>
#include <iterator>
#include <sstream>
#include <thread>

#include "evtsrv/event_port_manager.h"
#include "tests/coherence/published_model.h"

// Publishes the tree of the tests as port argv[1], and changes it as the lines of
// its standard input say; answers each with "ok" when the change is done.
//
//   set CHAIN ELEMENT TEXT    add CHAIN node|value|array|own|folding|folded NAME    remove CHAIN
//   all CHAIN TEXT...         fold CHAIN 0|1

namespace {

using namespace coherence;

/// `tree` knows which parts there are, not their values.
void follow(TreeModel& tree, PublishedModel& published, const std::string& line) {
  std::istringstream words(line);
  std::string what;
  std::string chain;
  words >> what >> chain;
  if (what == "set") {
    std::size_t element = 0;
    std::string text;
    words >> element >> text;
    published.set(chainOf(chain), element, text);
  } else if (what == "all") {
    published.setAll(chainOf(chain), {std::istream_iterator<std::string>(words), {}});
  } else if (what == "fold") {
    bool folded = false;
    words >> folded;
    published.fold(chainOf(chain), folded);
  } else if (what == "add") {
    std::string kind;
    std::string name;
    words >> kind >> name;
    tree.add(chainOf(chain), kind, name);
    published.publish(tree, chainOf(chain));
  } else {
    published.remove(chainOf(chain));
    tree.remove(chainOf(chain));
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    return 2;
  }
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  ModelSrv::ModelRoot root(&manager);
  TreeModel tree = TreeModel::initial();
  PublishedModel published(root, tree);
  if (root.startAsServer(argv[1]) != ModelSrv::ModelRes_Success) {
    return 1;
  }
  std::atomic<bool> running{true};
  // Changes are made by another thread than the one that answers.
  std::thread pump([&] {
    while (running) {
      static_cast<void>(manager.receiveEvent(-1));
    }
  });
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    follow(tree, published, line);
    std::cout << "ok" << std::endl;
  }
  running = false;
  manager.wake();
  pump.join();
  root.stop(true);
  return 0;
}
