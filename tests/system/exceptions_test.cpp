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

// The libraries hold the parts of the C++ library that they use, and a program has
// another copy, be it shared or its own: what one throws is caught with the other, and
// passes frames of both.

namespace {

using namespace ModelSrv;

/// Asks for more than any machine has. "operator new" is that of the libraries.
void wantTooMuch() {
  const volatile std::size_t tooMuch = SIZE_MAX / 4;
  ::operator delete(::operator new(tooMuch));
}

/// An exception of the program's own.
struct Trouble : std::runtime_error {
  explicit Trouble(int wantedNumber) : std::runtime_error("trouble"), number(wantedNumber) {}
  int number;
};

/// Notes how many exceptions are on their way when it is destroyed.
struct Witness {
  explicit Witness(int& seen) : uncaught(seen) {}
  ~Witness() { uncaught = std::uncaught_exceptions(); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;
  int& uncaught;
};

enum class Mood { fair, shortOfMemory, troubled };

/// A part whose value cannot always be told.
class MoodyPart final : public ModelPart {
 public:
  explicit MoodyPart(ModelPartId id) : ModelPart(id, "moody", ModelPartStatus_ReadOnly) {}
  ~MoodyPart() override { detach(); }

  std::atomic<Mood> mood{Mood::fair};
  /// When the last answer was left.
  mutable int uncaught = 0;

 protected:
  ModelRes appendText(std::string& out, ModelPartIndex /*index*/) const override {
    const Witness witness(uncaught);
    if (mood == Mood::shortOfMemory) {
      wantTooMuch();
    }
    if (mood == Mood::troubled) {
      throw Trouble(7);
    }
    out += "fair";
    return ModelRes_Success;
  }
};

/// A server in the thread of the test.
class Exceptions : public testing::Test {
 protected:
  Exceptions() {
    EXPECT_EQ(root_.add(&moody_), ModelRes_Success);
    EXPECT_EQ(root_.startAsServer(port_), ModelRes_Success);
  }

  std::string value() {
    std::ostringstream text;
    EXPECT_EQ(moody_.save(text, ModelPartIndex_All), ModelRes_Success);
    return text.str();
  }

  /// Reads the value through the library, which the program's exception has to pass.
  void saveAgainstTrouble() {
    const Witness witness(uncaught_);
    static_cast<void>(value());
  }

  /// Serves while `client` is at work on a thread of its own.
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

  /// None is on its way or being handled, and the library has let its lock go.
  void expectNothingLeft() {
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
  MoodyPart moody_{1};
  int uncaught_ = 0;
};

TEST_F(Exceptions, OfTheProgramReachItThroughTheLibrary) {
  moody_.mood = Mood::troubled;
  for (int i = 0; i < 3; ++i) {
    int number = 0;
    try {
      saveAgainstTrouble();
    } catch (const Trouble& trouble) {
      number = trouble.number;
      EXPECT_EQ(std::uncaught_exceptions(), 0);
      EXPECT_NE(std::current_exception(), nullptr);
    }
    EXPECT_EQ(number, 7);
    EXPECT_EQ(moody_.uncaught, 1);
    EXPECT_EQ(uncaught_, 1);
    expectNothingLeft();
  }
  moody_.mood = Mood::fair;
  EXPECT_EQ(value(), "fair");
}

TEST_F(Exceptions, OfTheLibraryAreCaughtInTheProgramByAnyOfTheirTypes) {
  std::string what;
  try {
    wantTooMuch();
  } catch (const std::exception& exception) {
    what = exception.what();
  }
  EXPECT_EQ(what, "std::bad_alloc");
  expectNothingLeft();
}

TEST_F(Exceptions, OfAnAllocationInAPartAreAResultInTheProgramItself) {
  moody_.mood = Mood::shortOfMemory;
  std::ostringstream text;
  EXPECT_EQ(moody_.save(text, ModelPartIndex_All), ModelRes_SystemError);
  EXPECT_EQ(moody_.uncaught, 1);
  EXPECT_EQ(text.str(), "");
  expectNothingLeft();
  moody_.mood = Mood::fair;
  EXPECT_EQ(value(), "fair");
}

TEST_F(Exceptions, OfTheLibraryAreCarriedToAnotherThread) {
  std::exception_ptr carried;
  std::thread([&] {
    try {
      wantTooMuch();
    } catch (...) {
      carried = std::current_exception();
    }
  }).join();
  ASSERT_NE(carried, nullptr);
  EXPECT_THROW(std::rethrow_exception(carried), std::bad_alloc);
  carried = nullptr;
  expectNothingLeft();
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
    moody_.mood = Mood::shortOfMemory;
    serve([&] { EXPECT_EQ(save(), ModelRes_NotConnected); });
    EXPECT_EQ(moody_.uncaught, 1);
    expectNothingLeft();
    moody_.mood = Mood::fair;
    serve([&] { EXPECT_EQ(save(), ModelRes_Success); });
    EXPECT_EQ(text, "fair");
  }
}

}  // namespace
