#pragma once

#include <string>
#include <vector>

#include "shell/scope_base.h"

namespace treescope {

/// A shell that notes which handlers are called and with what, and answers with
/// `answer`.
class RecordingShell : public ScopeBase {
 public:
  explicit RecordingShell(int batch = 1) : ScopeBase(nullptr, batch) {}

  int doLs(unsigned o, const char* p) override { return note("ls", {number(o), shown(p)}); }
  int doCd(const char* p) override { return note("cd", {shown(p)}); }
  int doSet(unsigned o, const char* v, const char* p) override {
    return note("set", {number(o), shown(v), shown(p)});
  }
  int doStr(const char* t, const char* p) override { return note("str", {shown(t), shown(p)}); }
  int doGet(const char* p) override { return note("get", {shown(p)}); }
  int doEu(unsigned o, const char* p) override { return note("eu", {number(o), shown(p)}); }
  int doDu(const char* p) override { return note("du", {shown(p)}); }
  int doConvert(const char* a, const char* b) override { return pair("convert", a, b); }
  int doFrom(const char* a, const char* b) override { return pair("from", a, b); }
  int doTo(const char* a, const char* b) override { return pair("to", a, b); }
  int doCat(unsigned o, const char* p) override { return note("cat", {number(o), shown(p)}); }
  int doCon(const char* a, const char* b) override { return pair("con", a, b); }
  int doDis(const char* a, const char* b) override { return pair("dis", a, b); }
  int doLoad(const char* n) override { return note("load", {shown(n)}); }
  int doSave(const char* n) override { return note("save", {shown(n)}); }
  int doRn(const char* a, const char* b) override { return pair("rn", a, b); }
  int doRm(const char* n) override { return note("rm", {shown(n)}); }
  int doMkdir(const char* n) override { return note("mkdir", {shown(n)}); }
  int doTab(const char* h, const char* l) override { return note("tab", {shown(h), shown(l)}); }
  int doExit() override { return note("exit", {}); }
  int doEnd() override { return note("end", {}); }
  int doTerminate() override { return note("terminate", {}); }
  int doBt(unsigned o, const char* p) override { return note("bt", {number(o), shown(p)}); }
  int doHelp() override { return note("help", {}); }
  int doOther(const char* w, const char* a, const char* b) override {
    return note("other", {shown(w), shown(a), shown(b)});
  }

  WordNode& words() { return *wordTree_; }
  std::vector<std::string>& path() { return currentPath_; }
  std::vector<std::string> ports() const { return {portName1_, portName2_, portName3_}; }

  /// One entry a call: the handler's name and its arguments, each behind a "|".
  std::vector<std::string> calls;
  int answer = 1;

 private:
  static std::string number(unsigned options) { return std::to_string(options); }
  static std::string shown(const char* text) { return text == nullptr ? "null" : text; }

  int pair(const char* name, const char* first, const char* second) {
    return note(name, {shown(first), shown(second)});
  }

  int note(const char* name, const std::vector<std::string>& arguments) {
    std::string call = name;
    for (const std::string& argument : arguments) {
      call += '|' + argument;
    }
    calls.push_back(call);
    return answer;
  }
};

}  // namespace treescope
