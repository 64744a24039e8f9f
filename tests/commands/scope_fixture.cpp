#include "tests/commands/scope_fixture.h"

#include "tests/support/process.h"

namespace treescope::test {

ScopeFixture::CommandResult ScopeFixture::run(const std::string& command) {
  test_support::CapturedOutput captured;
  const int result = scope_.dispatch(command.c_str());
  return {result, captured.take()};
}

std::string ScopeFixture::takeUpdates(int count) {
  const int wanted = scope_.updates + count;
  test_support::CapturedOutput captured;
  while (scope_.updates < wanted) {
    if (manager_.receiveEvent(test_support::timeoutMilliseconds) != EvtSrv::EvtRes_Success) {
      ADD_FAILURE() << "expected an update, got none within " << test_support::timeoutMilliseconds
                    << " ms";
      break;
    }
  }
  return captured.take();
}

std::string ScopeFixture::deliverUpdate(std::vector<std::uint8_t> bytes) {
  EvtSrv::MemoryHolder data(std::move(bytes), 1);
  EvtSrv::MemoryHolder reply;
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  test_support::CapturedOutput captured;
  EXPECT_EQ(scope_.receiveModelEvent("x", ModelSrv::ModelRoot::EvtTyp_Model_Update, &data, &reply),
            EvtSrv::EvtRes_Success);
  return captured.take();
}

}  // namespace treescope::test
