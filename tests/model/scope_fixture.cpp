#include "tests/model/scope_fixture.h"

namespace treescope::test {

ScopeFixture::Answer ScopeFixture::run(const std::string& command) {
  testing::internal::CaptureStdout();
  const int result = scope_.dispatch(command.c_str());
  return {result, testing::internal::GetCapturedStdout()};
}

std::string ScopeFixture::takeUpdates(int count) {
  constexpr int patience = 20000;
  const int wanted = scope_.updates + count;
  testing::internal::CaptureStdout();
  while (scope_.updates < wanted) {
    if (manager_.receiveEvent(patience) != EvtSrv::EvtRes_Success) {
      ADD_FAILURE() << "no update came";
      break;
    }
  }
  return testing::internal::GetCapturedStdout();
}

std::string ScopeFixture::handUpdate(std::vector<std::uint8_t> bytes) {
  EvtSrv::MemoryHolder data(std::move(bytes), 1);
  EvtSrv::MemoryHolder reply;
  testing::internal::CaptureStdout();
  EXPECT_EQ(scope_.receiveModelEvent("x", ModelSrv::ModelRoot::EvtTyp_Model_Update, &data, &reply),
            EvtSrv::EvtRes_Success);
  return testing::internal::GetCapturedStdout();
}

}  // namespace treescope::test
