#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/coherence/tree_model.h"
#include "tests/platform/modelsrv/proxy_part.h"

namespace coherence {

/// A client that asks one thing at a time.
class ModelClient {
 public:
  ModelClient() { static_cast<void>(root_.add(&part_)); }

  ModelSrv::ModelRes connect(const std::string& name) {
    return root_.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void);
  }

  ModelSrv::ModelRes childIds(const Chain& chain, std::vector<unsigned short>& ids) {
    return root_.getChildIdsFromServer(at(chain), ids);
  }
  ModelSrv::ModelRes childNames(const Chain& chain, std::vector<std::string>& names) {
    return root_.getChildNamesFromServer(at(chain), names);
  }
  ModelSrv::ModelRes elementSum(const Chain& chain, unsigned short& sum) {
    return root_.getElementSumFromServer(at(chain), sum);
  }
  ModelSrv::ModelRes elementNames(const Chain& chain, std::vector<std::string>& names) {
    return root_.getElementNamesFromServer(at(chain), names);
  }
  ModelSrv::ModelRes value(const Chain& chain, std::string& text,
                           unsigned short index = ModelSrv::ModelPartIndex_All) {
    std::ostringstream out;
    const ModelSrv::ModelRes result = at(chain)->save(out, index);
    text = out.str();
    return result;
  }
  ModelSrv::ModelRes store(const Chain& chain, const std::string& text,
                           unsigned short index = ModelSrv::ModelPartIndex_All) {
    std::istringstream in(text);
    return at(chain)->load(in, false, index);
  }

 private:
  ModelSrv::ModelPart* at(const Chain& chain) {
    return chain.empty() ? static_cast<ModelSrv::ModelPart*>(&root_) : &part_.at(chain);
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot root_{&manager_};
  modelsrv_tests::ProxyPart part_{root_};
};

}  // namespace coherence
