#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"

// A program that reads a whole tree of a model server and prints each value with its path, as the
// client of sd-bus beside it does:
//
//   tree_client NAME

namespace {

void check(ModelSrv::ModelRes result) {
  if (result != ModelSrv::ModelRes_Success) {
    throw std::runtime_error(ModelSrv::describe(result));
  }
}

void list(const char* name) {
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  ModelSrv::ModelRoot root(&manager);
  check(root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Default));
  // The path of the part that is visited, and where the name of each level ends.
  std::string path;
  std::vector<std::size_t> ends;
  check(root.readTree(&root, [&](const ModelSrv::TreePart& part) {
    if (part.chain.empty()) {
      return true;
    }
    ends.resize(part.chain.size());
    path.resize(ends.size() > 1 ? ends[ends.size() - 2] : 0);
    path += '/';
    path += part.name;
    ends.back() = path.size();
    if (part.result == ModelSrv::ModelRes_Success) {
      std::printf("%s [%.*s]\n", path.c_str(), static_cast<int>(part.text.size()),
                  part.text.data());
    }
    return true;
  }));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    if (argumentCount != 2) {
      throw std::runtime_error("expected the name of a server");
    }
    list(arguments[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tree_client: %s\n", error.what());
    return 1;
  }
  return 0;
}
