#pragma once

#include <string>
#include <vector>

#include "shell/scope_base.h"

namespace treescope {

/// A shell whose handlers record their calls and return `code`.
class RecordingShell : public ScopeBase {
 public:
  explicit RecordingShell(int batch = 1) : ScopeBase(nullptr, batch) {}

  int doLs(unsigned o, const char* p) override { return record("ls", {number(o), text(p)}); }
  int doCd(const char* p) override { return record("cd", {text(p)}); }
  int doSet(unsigned o, const char* v, const char* p) override {
    return record("set", {number(o), text(v), text(p)});
  }
  int doStr(const char* t, const char* p) override { return record("str", {text(t), text(p)}); }
  int doGet(const char* p) override { return record("get", {text(p)}); }
  int doEu(unsigned o, const char* p) override { return record("eu", {number(o), text(p)}); }
  int doDu(const char* p) override { return record("du", {text(p)}); }
  int doConvert(const char* a, const char* b) override { return recordTwo("convert", a, b); }
  int doFrom(const char* a, const char* b) override { return recordTwo("from", a, b); }
  int doTo(const char* a, const char* b) override { return recordTwo("to", a, b); }
  int doCat(unsigned o, const char* p) override { return record("cat", {number(o), text(p)}); }
  int doCon(const char* a, const char* b) override { return recordTwo("con", a, b); }
  int doDis(const char* a, const char* b) override { return recordTwo("dis", a, b); }
  int doLoad(const char* n) override { return record("load", {text(n)}); }
  int doSave(const char* n) override { return record("save", {text(n)}); }
  int doRn(const char* a, const char* b) override { return recordTwo("rn", a, b); }
  int doRm(const char* n) override { return record("rm", {text(n)}); }
  int doMkdir(const char* n) override { return record("mkdir", {text(n)}); }
  int doTab(const char* h, const char* l) override { return record("tab", {text(h), text(l)}); }
  int doExit() override { return record("exit", {}); }
  int doEnd() override { return record("end", {}); }
  int doTerminate() override { return record("terminate", {}); }
  int doBt(unsigned o, const char* p) override { return record("bt", {number(o), text(p)}); }
  int doHelp() override { return record("help", {}); }
  int doOther(const char* w, const char* a, const char* b) override {
    return record("other", {text(w), text(a), text(b)});
  }

  WordNode& words() { return *wordTree_; }
  std::vector<std::string>& path() { return currentPath_; }
  std::vector<std::string> ports() const { return {portName1_, portName2_, portName3_}; }

  /// One entry for each call: the handler's name and its arguments, separated by "|".
  std::vector<std::string> calls;
  int code = 1;

 private:
  static std::string number(unsigned options) { return std::to_string(options); }
  static std::string text(const char* argument) { return argument == nullptr ? "null" : argument; }

  int recordTwo(const char* name, const char* first, const char* second) {
    return record(name, {text(first), text(second)});
  }

  int record(const char* name, const std::vector<std::string>& arguments) {
    std::string call = name;
    for (const std::string& argument : arguments) {
      call += '|' + argument;
    }
    calls.push_back(call);
    return code;
  }
};

}  // namespace treescope
