#include <sys/stat.h>

#include <string>
#include <unordered_map>

#include "tools/commands.h"
#include "tools/json_object.h"
#include "tools/match.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

bool isFile(const std::string& operand) {
  struct stat status {};
  return operand == "-" || (::stat(operand.c_str(), &status) == 0 && !S_ISDIR(status.st_mode));
}

/// Compares two trees.
class Differ {
 public:
  explicit Differ(Context& context) : context_(context), options_(context.options()) {}

  void run() {
    const std::vector<std::string>& operands = options_.operands;
    TreeImage one;
    TreeImage other;
    if (!checkOperands() || !read(operands.front(), one)) {
      return;
    }
    if (operands.size() == 2 ? !read(operands.back(), other) : !readBase(one, other)) {
      return;
    }
    compare(one, other);
  }

 private:
  bool checkOperands() {
    const std::vector<std::string>& operands = options_.operands;
    std::string problem;
    if (operands.size() == 1 && !isFile(operands.front())) {
      problem = "\"" + printable(operands.front()) + "\": no file, and nothing to compare it with";
    } else if (operands.size() == 2 && operands.front() == "-" && operands.back() == "-") {
      problem = "-: expected once";
    }
    if (!problem.empty()) {
      context_.messages().print(problem);
      context_.note(Status::usage);
    }
    return problem.empty();
  }

  bool read(const std::string& operand, TreeImage& image) {
    if (isFile(operand)) {
      return readImageFile(context_, operand, image);
    }
    std::vector<Address> addresses;
    return parseAddresses(context_, {operand}, addresses) &&
           readImage(context_, addresses.front(), image);
  }

  /// The live tree at the base of `file`.
  bool readBase(const TreeImage& file, TreeImage& image) {
    auto base = parseAddress(file.base, {});
    if (std::get_if<std::string>(&base) != nullptr) {
      context_.messages().print(options_.operands.front(),
                                "has no base; expected an address to compare it with");
      context_.note(Status::usage);
      return false;
    }
    return readImage(context_, std::get<Address>(base), image);
  }

  void compare(const TreeImage& one, const TreeImage& other) {
    std::unordered_map<std::string_view, const ImagePart*> others;
    for (const ImagePart& part : other.parts) {
      others.emplace(part.address, &part);
    }
    for (const ImagePart& part : one.parts) {
      const auto found = others.find(part.address);
      if (found == others.end()) {
        print(part, '-');
        continue;
      }
      const ImagePart& counterpart = *found->second;
      const std::string& type = part.type.empty() ? counterpart.type : part.type;
      if (!isSameValue(part.value, counterpart.value, type)) {
        print(part, '-');
        print(counterpart, '+');
      }
      others.erase(found);
    }
    for (const ImagePart& part : other.parts) {
      if (others.contains(part.address)) {
        print(part, '+');
      }
    }
  }

  void print(const ImagePart& part, char sign) {
    context_.note(Status::differs);
    std::string& out = context_.output().text();
    if (options_.json) {
      JsonObject object(out);
      object.addText("address", part.address);
      object.addTextIfAny("type", part.type);
      object.addTextIfAny("access", part.access);
      object.addValue(part.value, part.type);
      object.addText("event", sign == '-' ? "removed" : "added");
      object.end();
    } else {
      out += context_.colored() ? (sign == '-' ? "\x1B[31m" : "\x1B[32m") : "";
      out += sign;
      out += ' ';
      out += part.address;
      out += '\t';
      appendPlain(out, part.value);
      out += context_.colored() ? "\x1B[0m" : "";
    }
    out += '\n';
    context_.output().writeIfLarge();
  }

  Context& context_;
  const Options& options_;
};

}  // namespace

void runDiff(Context& context) {
  Differ(context).run();
}

}  // namespace treectl
