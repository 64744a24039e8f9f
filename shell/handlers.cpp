#include "shell/results.h"
#include "shell/scope_base.h"

// What a command does in a shell that does not know it.

namespace treescope {

int ScopeBase::doLs(unsigned /*options*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doCd(const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doSet(unsigned /*options*/, const char* /*value*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doStr(const char* /*text*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doGet(const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doEu(unsigned /*options*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doDu(const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doConvert(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doFrom(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doTo(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doCat(unsigned /*options*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doCon(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doDis(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doLoad(const char* /*name*/) {
  return result::nothing;
}

int ScopeBase::doSave(const char* /*name*/) {
  return result::nothing;
}

int ScopeBase::doRn(const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

int ScopeBase::doRm(const char* /*name*/) {
  return result::nothing;
}

int ScopeBase::doMkdir(const char* /*name*/) {
  return result::nothing;
}

int ScopeBase::doTab(const char* /*head*/, const char* /*lastWord*/) {
  return result::nothing;
}

int ScopeBase::doExit() {
  return result::nothing;
}

int ScopeBase::doEnd() {
  return result::nothing;
}

int ScopeBase::doTerminate() {
  return result::nothing;
}

int ScopeBase::doBt(unsigned /*options*/, const char* /*path*/) {
  return result::nothing;
}

int ScopeBase::doHelp() {
  return result::nothing;
}

int ScopeBase::doOther(const char* /*word*/, const char* /*first*/, const char* /*second*/) {
  return result::nothing;
}

}  // namespace treescope
