#include "tests/coherence/changing_server.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>

namespace coherence {

using namespace ModelSrv;

int scheduleSteps() {
  // A step of a sanitized build takes several times as long.
  constexpr int defaultSteps = test_support::sanitized ? 1000 : 3000;
  const char* const given = std::getenv("TREESCOPE_SCHEDULE_STEPS");
  return given != nullptr ? std::atoi(given) : defaultSteps;
}

ChangingServer::ChangingServer(unsigned seed) : random_(seed) {
  start();
}

ChangingServer::~ChangingServer() {
  finish();
}

void ChangingServer::start() {
  process_ = std::make_unique<test_support::Process>(
      std::vector<std::string>{test_support::buildDirectory() + "/tests/coherence_server", port_});
  ASSERT_TRUE(process_->waitForLine("ready"));
  tree_ = TreeModel::initial();
}

void ChangingServer::kill() {
  process_->signal(SIGKILL);
  ASSERT_TRUE(process_->waitForExit().has_value());
}

void ChangingServer::finish() {
  EXPECT_EQ(process_->finish(), test_support::ExitStatus{});
}

void ChangingServer::command(const std::string& line) {
  ASSERT_TRUE(process_->write(line + '\n'));
  ASSERT_TRUE(process_->waitForLine("ok")) << line;
}

std::vector<std::string> ChangingServer::anyTexts() {
  std::vector<std::string> texts(1 + below(4));
  for (std::string& text : texts) {
    text = anyText();
  }
  return texts;
}

Chain ChangingServer::anyPart() {
  auto at = tree_.parts().begin();
  std::advance(at, below(static_cast<unsigned>(tree_.parts().size())));
  Chain chain = at->first;
  while (!tree_.contains(chain)) {
    chain.pop_back();
  }
  return chain;
}

void ChangingServer::change(const Chain& chain) {
  PartModel& part = tree_.at(chain);
  const bool isTestClass = part.partClass != PartClass::library;
  if (part.isNode) {
    if (isTestClass) {
      hideOrShow(chain);
    }
    return;
  }
  if (isTestClass && below(2) == 0) {
    part.setTexts(anyTexts());
    std::string line = "all " + textOf(chain);
    for (const std::string& text : part.values) {
      line += ' ' + text;
    }
    return command(line);
  }
  const unsigned element = below(static_cast<unsigned>(part.values.size()));
  const std::string text = anyText();
  setElement(part, element, text);
  command("set " + textOf(chain) + ' ' + std::to_string(element) + ' ' + text);
}

void ChangingServer::hideOrShow(const Chain& chain) {
  PartModel& part = tree_.at(chain);
  part.isHiding = !part.isHiding;
  command("hide " + textOf(chain) + (part.isHiding ? " 1" : " 0"));
}

void ChangingServer::setElement(PartModel& part, unsigned element, const std::string& text) {
  part.values[element] = text;
  if (part.partClass != PartClass::library) {
    part.setTexts(part.values);
  }
}

void ChangingServer::store(modelsrv_tests::Client& client, const Chain& chain) {
  PartModel& part = tree_.at(chain);
  if (part.isNode) {
    return;
  }
  if (part.partClass != PartClass::library && below(2) == 0) {
    part.setTexts(anyTexts());
    ASSERT_EQ(client.load(chain, part.text()), ModelRes_Success);
    return;
  }
  const unsigned element = below(static_cast<unsigned>(part.values.size()));
  const std::string text = anyText();
  const auto index = part.isArray ? static_cast<ModelPartIndex>(element) : ModelPartIndex_All;
  ASSERT_EQ(client.load(chain, text, false, index), ModelRes_Success);
  setElement(part, element, text);
}

std::optional<Chain> ChangingServer::addPart(const Chain& parent) {
  if (!tree_.at(parent).isNode) {
    return std::nullopt;
  }
  Chain chain = parent;
  chain.push_back(static_cast<ModelPartId>(1000 + below(50)));
  if (tree_.parts().contains(chain)) {
    return std::nullopt;
  }
  static constexpr std::array kinds{"node", "value", "array", "varying", "hiding", "hidden"};
  add(chain, kinds[below(kinds.size())]);
  return chain;
}

void ChangingServer::add(const Chain& chain, const std::string& kind) {
  const std::string name = anyText();
  command("add " + textOf(chain) + ' ' + kind + ' ' + name);
  tree_.add(chain, kind, name);
}

void ChangingServer::remove(const Chain& chain) {
  if (chain.empty() || chain == Chain{9}) {
    return;
  }
  command("remove " + textOf(chain));
  tree_.remove(chain);
}

}  // namespace coherence
