#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/support/pump.h"

namespace test_support {

/// A model server in the test's process, with its own thread and manager. A program
/// that uses it also links the platform. The tree has a part of every kind:
///
///     /drive/speed       1.1   int32 42
///     /drive/label       1.2   text "two words"
///     /drive/gains       1.3   double array p 1.5, i 0.25
///     /drive/raw         1.4   uint8 array 1 2 3, without element names
///     /drive/serial      1.5   text "A-17", read-only
///     /drive/offset      1.6   float 0, protected
///     /drive/secret      1.7   bool, refuses subscriptions
///     /drive/limited     1.8   int32 1, whose store check refuses values above 10
///     /drive/<unnamed>   1.12  uint16 7
///     /drive/speed       1.13  int32 99, the second of that name
///     /drive/inner/deep  1.14.1  int32 5
///     /empty             2     a node without children
///     /<unnamed>/x       3.1   int32 3
///     /odd               4     text, with a name of unusual bytes
///     /top               5     text "line\nbreak"
class SampleServer {
 public:
  /// Whether clients receive prefetch replies and cache them.
  enum class Prefetch { enabled, disabled };

  /// Starts the service. `name` must be unused.
  explicit SampleServer(const std::string& name, Prefetch prefetch = Prefetch::enabled);

  /// `prepare` changes the tree before the service starts.
  SampleServer(const std::string& name, const std::function<void(SampleServer&)>& prepare);

  /// Stops the service if it still runs.
  ~SampleServer();

  /// The name of the part `/odd`.
  static std::string oddName();

  /// Dispatches nothing, so sends no reply, until `resume`.
  void hang() { pump.reset(); }
  void resume() { pump.emplace(manager); }

  /// Stops the service immediately; its connections end.
  void end();

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot root{&manager};
  ModelSrv::ModelNode inner{14, "inner"};
  ModelSrv::ModelNode drive{1, "drive"};
  ModelSrv::ModelNode empty{2, "empty"};
  ModelSrv::ModelNode unnamedNode{3, ""};
  ModelSrv::ValuePart<std::int32_t> speed{1, "speed", 42};
  ModelSrv::ValuePart<std::string> label{2, "label", "two words"};
  ModelSrv::ArrayPart<double> gains{3, "gains", {1.5, 0.25}, {"p", "i"}};
  ModelSrv::ArrayPart<std::uint8_t> raw{4, "raw", {1, 2, 3}};
  ModelSrv::ValuePart<std::string> serial{5, "serial", "A-17", ModelSrv::ModelPartStatus_ReadOnly};
  ModelSrv::ValuePart<float> offset{6, "offset", 0, ModelSrv::ModelPartStatus_Protected};
  ModelSrv::ValuePart<bool> secret{7, "secret", false};
  ModelSrv::ValuePart<std::int32_t> limited{8, "limited", 1};
  ModelSrv::ValuePart<std::uint16_t> unnamed{12, "", 7};
  ModelSrv::ValuePart<std::int32_t> speedAgain{13, "speed", 99};
  ModelSrv::ValuePart<std::int32_t> deep{1, "deep", 5};
  ModelSrv::ValuePart<std::int32_t> x{1, "x", 3};
  ModelSrv::ValuePart<std::string> odd{4, oddName(), "odd value"};
  ModelSrv::ValuePart<std::string> top{5, "top", "line\nbreak"};
  /// Dispatches the server's events; none: the server hangs.
  std::optional<Pump> pump;

 private:
  void fillTree();
  void start(const std::string& name);
};

}  // namespace test_support
