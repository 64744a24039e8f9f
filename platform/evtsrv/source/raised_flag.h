#pragma once

namespace EvtSrv::internal {

/// Holds a flag up for the length of a block, whichever way that is left.
class RaisedFlag {
 public:
  explicit RaisedFlag(bool& flag) : flag_(flag) { flag_ = true; }
  ~RaisedFlag() { flag_ = false; }
  RaisedFlag(const RaisedFlag&) = delete;
  RaisedFlag& operator=(const RaisedFlag&) = delete;

 private:
  bool& flag_;
};

}  // namespace EvtSrv::internal
