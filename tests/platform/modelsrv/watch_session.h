#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <mutex>

#include "tests/platform/modelsrv/served_tree.h"
#include "tests/platform/modelsrv/watched_session.h"

namespace modelsrv_tests {

/// The session of one client in a server that dispatches nothing.
class WatchSession : public testing::Test {
 protected:
  static constexpr unsigned subtree = ModelSrv::internal::watchSubtree;
  static constexpr unsigned mayBeAbsent = ModelSrv::internal::watchMayBeAbsent;

  Server server_{test_support::uniquePortName()};
  std::unique_lock<KSTD::KThreadMutex> lock_{server_.manager.clientMutex};
  WatchedSession session_{std::make_shared<ModelSrv::internal::SessionShare>(server_.root)};
};

}  // namespace modelsrv_tests
