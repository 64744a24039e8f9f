#include "tools/commands.h"
#include "tools/json_object.h"
#include "tools/match.h"
#include "tools/part_json.h"

namespace treectl {

namespace {

void appendLine(std::string& out, std::string_view key, std::string_view text) {
  if (!text.empty()) {
    out += key;
    out += ": ";
    appendPlainText(out, text);
    out += '\n';
  }
}

std::string joined(const std::vector<std::string>& texts) {
  std::string out;
  for (const std::string& text : texts) {
    out += (out.empty() ? "" : ", ") + text;
  }
  return out;
}

std::string limitsText(const ModelSrv::PartAttributes& attributes) {
  if (attributes.minimum.empty() && attributes.maximum.empty()) {
    return {};
  }
  if (attributes.maximum.empty()) {
    return "at least " + attributes.minimum;
  }
  return attributes.minimum.empty() ? "at most " + attributes.maximum
                                    : attributes.minimum + " to " + attributes.maximum;
}

std::string elementsText(const ModelSrv::PartDescription& description) {
  if (description.elements == 0) {
    return {};
  }
  std::string text = std::to_string(description.elements);
  if (!description.elementNames.empty()) {
    text += " (" + joined(description.elementNames) + ")";
  }
  return text;
}

void appendPlainDescription(std::string& out, const ModelSrv::PartDescription& description) {
  const ModelSrv::PartAttributes& attributes = description.attributes;
  appendLine(out, "type", description.type);
  appendLine(out, "access", accessName(description.access));
  if (description.type != "node") {
    appendLine(out, "subscribable", description.subscribable ? "true" : "false");
  }
  appendLine(out, "elements", elementsText(description));
  appendLine(out, "unit", attributes.unit);
  appendLine(out, "limits", limitsText(attributes));
  appendLine(out, "choices", joined(attributes.choices));
  appendLine(out, "text", attributes.text);
}

/// Prints what addresses stand for.
class Describer {
 public:
  explicit Describer(Context& context) : context_(context) {}

  void run() {
    std::vector<Address> addresses;
    if (!parseAddresses(context_, context_.options().operands, addresses)) {
      return;
    }
    isOne_ = addresses.size() == 1 && !addresses.front().hasWildcards();
    for (const Address& address : addresses) {
      forEachMatch(context_, address, [this](const Match& match) { return print(match); });
    }
  }

 private:
  Visit print(const Match& match) {
    ModelSrv::PartDescription description;
    const ModelSrv::ModelRes result = match.connection->readDescription(match.chain, description);
    if (result != ModelSrv::ModelRes_Success) {
      context_.fail(match.shown(), result);
      return visitAfter(result);
    }
    std::string& out = context_.output().text();
    if (context_.options().json) {
      JsonObject object(out);
      object.addText("address", match.shown());
      object.addPart(description, match.elementName);
      addDetails(object, out, description);
      object.end();
      out += '\n';
    } else {
      if (!isOne_) {
        out += isFirst_ ? "" : "\n";
        appendLine(out, "address", match.shown());
      }
      appendPlainDescription(out, description);
    }
    isFirst_ = false;
    context_.output().writeIfLarge();
    return Visit::taken;
  }

  Context& context_;
  bool isOne_ = false;
  bool isFirst_ = true;
};

}  // namespace

void runDescribe(Context& context) {
  Describer(context).run();
}

}  // namespace treectl
