#include <sys/resource.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "tests/coherence/published_model.h"
#include "tests/support/descriptor.h"
#include "tests/support/pump.h"

// Publishes the tree of the tests as port argv[1]. Reads commands from standard input, one in
// each line, and prints "ok" after each one:
//
//   set CHAIN ELEMENT TEXT
//   all CHAIN TEXT...
//   add CHAIN node|value|array|varying|hiding|hidden NAME
//   remove CHAIN
//   hide CHAIN 0|1
//   fill - 0|1         takes every descriptor that it may have, so that sessions are refused

namespace {

using namespace coherence;

/// Takes every descriptor that this process may have, or gives them back.
void fill(bool full) {
  static std::vector<test_support::Descriptor> taken;
  // Few, so that it takes no long time.
  constexpr rlim_t few = 64;
  static const rlimit before = [] {
    rlimit limit{};
    static_cast<void>(::getrlimit(RLIMIT_NOFILE, &limit));
    return limit;
  }();
  const rlimit now{full ? few : before.rlim_cur, before.rlim_max};
  static_cast<void>(::setrlimit(RLIMIT_NOFILE, &now));
  taken.clear();
  while (full && taken.emplace_back(::dup(STDIN_FILENO)).get() >= 0) {
  }
}

/// Keeps the structure of `tree` up to date, but not its values.
void execute(TreeModel& tree, PublishedModel& published, const std::string& line) {
  std::istringstream words(line);
  std::string command;
  std::string chain;
  words >> command >> chain;
  if (command == "set") {
    std::size_t element = 0;
    std::string text;
    words >> element >> text;
    published.set(chainOf(chain), element, text);
  } else if (command == "all") {
    published.setAll(chainOf(chain), {std::istream_iterator<std::string>(words), {}});
  } else if (command == "hide") {
    bool hiding = false;
    words >> hiding;
    published.hide(chainOf(chain), hiding);
  } else if (command == "fill") {
    bool full = false;
    words >> full;
    fill(full);
  } else if (command == "add") {
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
  // The changes are made on another thread than the one that serves requests.
  std::optional<test_support::Pump> pump(manager);
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    execute(tree, published, line);
    std::cout << "ok" << std::endl;
  }
  pump.reset();
  root.stop(true);
  return 0;
}
