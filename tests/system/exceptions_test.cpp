#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "tests/support/port_name.h"

// The libraries contain the parts of the C++ library that they use, and a program has
// another copy, shared or its own. So an exception of one is caught by the other, and
// unwinds the frames of both.

namespace {

using namespace ModelSrv;

/// Allocates more than any machine has. "operator new" is that of the libraries.
void allocateTooMuch() {
  const volatile std::size_t tooMuch = SIZE_MAX / 4;
  ::operator delete(::operator new(tooMuch));
}

/// An exception that only the program defines.
struct ProgramError : std::runtime_error {
  explicit ProgramError(int value) : std::runtime_error("program error"), number(value) {}
  int number;
};

/// Counts the uncaught exceptions when it is destroyed.
struct UncaughtCounter {
  explicit UncaughtCounter(int& seen) : uncaught(seen) {}
  ~UncaughtCounter() { uncaught = std::uncaught_exceptions(); }
  UncaughtCounter(const UncaughtCounter&) = delete;
  UncaughtCounter& operator=(const UncaughtCounter&) = delete;
  int& uncaught;
};

enum class Reply { value, outOfMemory, programError };

/// A part that throws when its value is read, as the test sets it.
class ThrowingPart final : public ModelPart {
 public:
  explicit ThrowingPart(ModelPartId id) : ModelPart(id, "throwing", ModelPartStatus_ReadOnly) {}
  ~ThrowingPart() override { detach(); }

  std::atomic<Reply> reply{Reply::value};
  /// The uncaught exceptions at the end of the last read.
  mutable int uncaught = 0;

 protected:
  ModelRes appendText(std::string& out, ModelPartIndex /*index*/) const override {
    const UncaughtCounter counter(uncaught);
    if (reply == Reply::outOfMemory) {
      allocateTooMuch();
    }
    if (reply == Reply::programError) {
      throw ProgramError(7);
    }
    out += "value";
    return ModelRes_Success;
  }
};

/// A server in the thread of the test.
class Exceptions : public testing::Test {
 protected:
  Exceptions() {
    EXPECT_EQ(root_.add(&part_), ModelRes_Success);
    EXPECT_EQ(root_.startAsServer(port_), ModelRes_Success);
  }

  std::string value() {
    std::ostringstream text;
    EXPECT_EQ(part_.save(text, ModelPartIndex_All), ModelRes_Success);
    return text.str();
  }

  /// Reads the value through the library; the program's exception unwinds its frames.
  void saveWithProgramError() {
    const UncaughtCounter counter(uncaught_);
    static_cast<void>(value());
  }

  /// Serves while `client` runs on another thread.
  template <typename Client>
  void serve(Client client) {
    std::atomic<bool> working{true};
    std::thread thread([&] {
      client();
      working = false;
      manager_.wake();
    });
    while (working) {
      static_cast<void>(manager_.receiveEvent(-1));
    }
    thread.join();
  }

  /// No exception is uncaught or being handled, and the library has released its lock.
  void expectCleanState() {
    EXPECT_EQ(std::uncaught_exceptions(), 0);
    EXPECT_EQ(std::current_exception(), nullptr);
    bool isFree = false;
    std::thread([&] {
      if (manager_.clientMutex.try_lock()) {
        isFree = true;
        manager_.clientMutex.unlock();
      }
    }).join();
    EXPECT_TRUE(isFree);
  }

  const std::string port_ = test_support::uniquePortName();
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ThrowingPart part_{1};
  int uncaught_ = 0;
};

TEST_F(Exceptions, OfTheProgramReachItThroughTheLibrary) {
  part_.reply = Reply::programError;
  for (int i = 0; i < 3; ++i) {
    int number = 0;
    try {
      saveWithProgramError();
    } catch (const ProgramError& error) {
      number = error.number;
      EXPECT_EQ(std::uncaught_exceptions(), 0);
      EXPECT_NE(std::current_exception(), nullptr);
    }
    EXPECT_EQ(number, 7);
    EXPECT_EQ(part_.uncaught, 1);
    EXPECT_EQ(uncaught_, 1);
    expectCleanState();
  }
  part_.reply = Reply::value;
  EXPECT_EQ(value(), "value");
}

TEST_F(Exceptions, OfTheLibraryAreCaughtInTheProgramByAnyOfTheirTypes) {
  std::string what;
  try {
    allocateTooMuch();
  } catch (const std::exception& exception) {
    what = exception.what();
  }
  EXPECT_EQ(what, "std::bad_alloc");
  expectCleanState();
}

TEST_F(Exceptions, OfAnAllocationInAPartAreAResultInTheProgramItself) {
  part_.reply = Reply::outOfMemory;
  std::ostringstream text;
  EXPECT_EQ(part_.save(text, ModelPartIndex_All), ModelRes_SystemError);
  EXPECT_EQ(part_.uncaught, 1);
  EXPECT_EQ(text.str(), "");
  expectCleanState();
  part_.reply = Reply::value;
  EXPECT_EQ(value(), "value");
}

TEST_F(Exceptions, OfTheLibraryAreCarriedToAnotherThread) {
  std::exception_ptr carried;
  std::thread([&] {
    try {
      allocateTooMuch();
    } catch (...) {
      carried = std::current_exception();
    }
  }).join();
  ASSERT_NE(carried, nullptr);
  EXPECT_THROW(std::rethrow_exception(carried), std::bad_alloc);
  carried = nullptr;
  expectCleanState();
}

TEST_F(Exceptions, OfAnAllocationInAPartAreCaughtInTheLibraryAndEndTheConnectionAlone) {
  EvtSrv::EventPortManager clientManager(EvtSrv::ConBehave_Default, true);
  ModelRoot clientRoot(&clientManager);
  ModelPart clientPart(1);
  ASSERT_EQ(clientRoot.add(&clientPart), ModelRes_Success);
  std::string text;
  const auto save = [&] {
    std::ostringstream stream;
    const ModelRes result = clientPart.save(stream, ModelPartIndex_All);
    text = stream.str();
    return result;
  };
  serve([&] {
    EXPECT_EQ(clientRoot.startAsClient(port_, ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void),
              ModelRes_Success);
  });
  for (int i = 0; i < 3; ++i) {
    part_.reply = Reply::outOfMemory;
    serve([&] { EXPECT_EQ(save(), ModelRes_NotConnected); });
    EXPECT_EQ(part_.uncaught, 1);
    expectCleanState();
    part_.reply = Reply::value;
    serve([&] { EXPECT_EQ(save(), ModelRes_Success); });
    EXPECT_EQ(text, "value");
  }
}

}  // namespace
