#include "tools/commands.h"
#include "tools/json_object.h"
#include "tools/match.h"

namespace treectl {

namespace {

/// Prints the values that addresses stand for.
class Getter {
 public:
  explicit Getter(Context& context) : context_(context), options_(context.options()) {}

  void run() {
    std::vector<Address> addresses;
    if (!parseAddresses(context_, options_.operands, addresses)) {
      return;
    }
    isOne_ = addresses.size() == 1 && !addresses.front().hasWildcards();
    if (options_.raw && !isOne_) {
      context_.messages().print("--raw: expected one address without wildcards");
      context_.note(Status::usage);
      return;
    }
    for (const Address& address : addresses) {
      hasWildcards_ = address.hasWildcards();
      forEachMatch(context_, address, [this](const Match& match) { return print(match); });
    }
  }

 private:
  Visit print(const Match& match) {
    if (options_.raw) {
      return printBytes(match);
    }
    Value value;
    const ModelSrv::ModelRes result = match.connection->readValue(match.chain, match.index, value);
    if (result == ModelSrv::ModelRes_NoValue && hasWildcards_) {
      return Visit::skipped;
    }
    if (result != ModelSrv::ModelRes_Success) {
      return fail(match, result);
    }
    return options_.json ? printJson(match, value) : printPlain(match, value);
  }

  Visit fail(const Match& match, ModelSrv::ModelRes result) {
    ModelSrv::ModelRes read = ModelSrv::ModelRes_Success;
    if (result == ModelSrv::ModelRes_NoValue && isNode(*match.connection, match.chain, read)) {
      context_.fail(Status::notFound, match.shown(), "a node has no value");
    } else {
      context_.fail(match.shown(), result);
    }
    return visitAfter(result);
  }

  Visit printBytes(const Match& match) {
    std::string text;
    const ModelSrv::ModelRes result = match.connection->readText(match.chain, match.index, text);
    if (result != ModelSrv::ModelRes_Success) {
      return fail(match, result);
    }
    context_.output().text() += text;
    return Visit::taken;
  }

  Visit printPlain(const Match& match, const Value& value) {
    std::string& out = context_.output().text();
    if (!isOne_) {
      out += match.shown();
      out += '\t';
    }
    appendPlain(out, value);
    out += '\n';
    context_.output().writeIfLarge();
    return Visit::taken;
  }

  Visit printJson(const Match& match, const Value& value) {
    ModelSrv::PartDescription description;
    const ModelSrv::ModelRes result = match.connection->readDescription(match.chain, description);
    if (result != ModelSrv::ModelRes_Success) {
      return fail(match, result);
    }
    std::string& out = context_.output().text();
    JsonObject object(out);
    object.addText("address", match.shown());
    object.addPart(description, match.elementName);
    object.addValue(value, description.type);
    object.end();
    out += '\n';
    context_.output().writeIfLarge();
    return Visit::taken;
  }

  Context& context_;
  const Options& options_;
  bool isOne_ = false;
  bool hasWildcards_ = false;
};

}  // namespace

void runGet(Context& context) {
  Getter(context).run();
}

}  // namespace treectl
