#include "gateway/viewer/link_node.h"

#include <array>
#include <charconv>
#include <string>

namespace modelgate {

namespace {

bool append(std::string& out, const std::optional<std::chrono::milliseconds>& time) {
  if (time) {
    out += std::to_string(time->count());
  }
  return time.has_value();
}

}  // namespace

void appendMilliseconds(std::string& out, std::chrono::microseconds time) {
  std::array<char, 32> text{};
  const double inMilliseconds = static_cast<double>(time.count()) / 1000;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), inMilliseconds).ptr;
  out.append(text.data(), end);
}

LinkNode::LinkNode(ModelSrv::ModelPartId id, const LinkStatus& status)
    : ModelNode(id, std::string(linkNodeName)),
      state_(
          1, "state", "text",
          [&status](std::string& out) {
            out += status.stateText();
            return true;
          },
          "", "online, conflict, unreachable, offline or silent"),
      age_(
          2, "age", "uint64", [&status](std::string& out) { return append(out, status.age()); },
          "ms", "time since the device was last heard"),
      roundTrip_(
          3, "roundTrip", "double",
          [&status](std::string& out) {
            const auto time = status.roundTrip();
            if (time) {
              appendMilliseconds(out, *time);
            }
            return time.has_value();
          },
          "ms", "time from the last request to its reply"),
      gaps_(
          4, "gaps", "uint64",
          [&status](std::string& out) {
            out += std::to_string(status.gaps());
            return true;
          },
          "", "times that updates were missed and requested again"),
      skew_(
          5, "skew", "int64", [&status](std::string& out) { return append(out, status.skew()); },
          "ms", "by how much the device's clock is ahead") {
  for (ModelPart* const part :
       std::initializer_list<ModelPart*>{&state_, &age_, &roundTrip_, &gaps_, &skew_}) {
    static_cast<void>(add(part));
  }
}

LinkNode::~LinkNode() {
  detach();
  releaseChildren();
}

void LinkNode::refresh() {
  for (LivePart* const part : {&state_, &age_, &roundTrip_, &gaps_, &skew_}) {
    part->refresh();
  }
}

}  // namespace modelgate
