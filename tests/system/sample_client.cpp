#include "tests/system/sample_client.h"

#include <sstream>
#include <stdexcept>

SampleClient::SampleClient(EvtSrv::EventPortManager& manager, const std::string& server)
    : root_(&manager) {
  ModelSrv::ModelRes result = root_.add(&target_);
  if (result == ModelSrv::ModelRes_Success) {
    result =
        root_.startAsClient(server, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void);
  }
  if (result != ModelSrv::ModelRes_Success) {
    throw std::runtime_error(server + ": " + ModelSrv::describe(result));
  }
}

std::string SampleClient::read(ModelSrv::ModelPartId id) {
  target_.id = id;
  std::ostringstream text;
  if (target_.save(text, ModelSrv::ModelPartIndex_All) != ModelSrv::ModelRes_Success) {
    return {};
  }
  return text.str();
}

bool SampleClient::store(ModelSrv::ModelPartId id, const std::string& text) {
  target_.id = id;
  std::istringstream in(text);
  return target_.load(in, false, ModelSrv::ModelPartIndex_All) == ModelSrv::ModelRes_Success;
}
