#include "tools/tree_image.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>
#include <utility>

#include "tools/match.h"
#include "tools/part_stream.h"
#include "tools/subtree.h"
#include "tools/time_text.h"

namespace treectl {

namespace {

/// The position in a printed address after its first `count` names.
std::size_t endOfNames(std::string_view address, std::size_t count) {
  std::size_t at = 0;
  for (std::size_t names = 0; at < address.size(); ++at) {
    if (address[at] == '/' && names++ == count) {
      break;
    }
    at += address[at] == '\\' ? 1 : 0;
  }
  return at;
}

/// How many names stand before the first wildcard.
std::size_t literalNames(const Address& address) {
  std::size_t count = 0;
  while (count < address.names.size() && !address.names[count].hasWildcards()) {
    ++count;
  }
  return count;
}

/// Collects the parts that an address stands for.
class ImageReader {
 public:
  /// `restart` may be null.
  ImageReader(Context& context, const Address& address, TreeImage& image, const PartTaker& take,
              const std::function<void()>* restart)
      : context_(context), address_(address), image_(image), take_(take), restart_(restart) {}

  bool run() {
    const Status before = context_.status();
    forEachMatch(context_, address_, [this](const Match& match) { return visit(match); });
    return !failed_ && context_.status() == before;
  }

 private:
  Visit visit(const Match& match) {
    setBase(match);
    ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
    if (match.index == ModelSrv::ModelPartIndex_All &&
        isNode(*match.connection, match.chain, result)) {
      return address_.hasWildcards() ? Visit::skipped : readBelow(match);
    }
    if (result == ModelSrv::ModelRes_Success) {
      result = readPart(match, match.chain, match.address);
    }
    if (result == ModelSrv::ModelRes_NoValue && address_.hasWildcards()) {
      return Visit::skipped;
    }
    return result == ModelSrv::ModelRes_Success ? Visit::taken : fail(match.shown(), result);
  }

  void setBase(const Match& match) {
    if (address_.server.hasWildcards()) {
      image_.base = "/";
    } else if (image_.base.empty()) {
      const bool hasServer = address_.hasServer;
      const std::string_view part = match.partAddress();
      baseSize_ = endOfNames(part, literalNames(address_) + (hasServer ? 1 : 0));
      image_.base = hasServer ? "" : "/";
      if (!hasServer) {
        appendEscapedName(image_.base, match.server);
      }
      image_.base += part.substr(0, baseSize_);
    }
  }

  Visit readBelow(const Match& match) {
    if (restart_ != nullptr && match.connection->canVisitSubtree()) {
      PartStream stream(match, baseSize_, take_, *restart_);
      ModelSrv::ModelRes result = match.connection->visitSubtree(
          match.chain, [&](const ModelSrv::TreePart& part) { return stream.add(part); });
      if (!stream.isUnsorted()) {
        if (result != ModelSrv::ModelRes_Success) {
          return fail(match.shown(), result);
        }
        result = stream.result();
        return result == ModelSrv::ModelRes_Success ? Visit::taken : fail(stream.address(), result);
      }
      (*restart_)();
    }
    Subtree subtree;
    const ModelSrv::ModelRes result = match.connection->readSubtree(match.chain, subtree);
    if (result != ModelSrv::ModelRes_Success) {
      return fail(match.shown(), result);
    }
    // First all that may fail.
    std::unordered_map<std::uint32_t, Value> values;
    if (std::any_of(subtree.entries.begin(), subtree.entries.end(),
                    [](const SubtreeEntry& entry) { return entry.needsReading(); }) &&
        !readMissing(match, subtree, values)) {
      return Visit::stopped;
    }
    ImagePart part;
    part.connection = match.connection;
    const char* type = nullptr;
    for (SubtreeWalk walk(subtree, match.chain, match.address); walk.next();) {
      if (!walk.entry().hasValue()) {
        continue;
      }
      if (walk.entry().needsReading()) {
        part.value = values[walk.number()];
      } else {
        static_cast<void>(walk.readValue(*match.connection, part.value));
      }
      part.address.assign(walk.address(), baseSize_);
      // Parts of one type have one text.
      if (walk.entry().type.data() != type) {
        type = walk.entry().type.data();
        part.type = walk.entry().type;
      }
      part.access = accessName(walk.entry().access);
      part.chain = walk.chain();
      take_(part);
    }
    return Visit::taken;
  }

  /// Reads the values that did not come with the subtree, by the numbers of their entries.
  bool readMissing(const Match& match, const Subtree& subtree,
                   std::unordered_map<std::uint32_t, Value>& values) {
    for (SubtreeWalk walk(subtree, match.chain, match.address); walk.next();) {
      if (walk.entry().needsReading()) {
        const auto result = walk.readValue(*match.connection, values[walk.number()]);
        if (result != ModelSrv::ModelRes_Success) {
          fail(walk.address(), result);
          return false;
        }
      }
    }
    return true;
  }

  ModelSrv::ModelRes readPart(const Match& match, const Chain& chain, const std::string& address) {
    ModelSrv::PartDescription description;
    ImagePart part;
    ModelSrv::ModelRes result = match.connection->readDescription(chain, description);
    if (result == ModelSrv::ModelRes_Success) {
      result = match.connection->readValue(chain, match.index, part.value);
    }
    if (result == ModelSrv::ModelRes_Success) {
      part.address = address.substr(baseSize_);
      part.type = description.type;
      part.access = accessName(description.access);
      part.connection = match.connection;
      part.chain = chain;
      take_(part);
    }
    return result;
  }

  Visit fail(std::string_view address, ModelSrv::ModelRes result) {
    failed_ = true;
    context_.fail(address, result);
    return Visit::stopped;
  }

  Context& context_;
  const Address& address_;
  TreeImage& image_;
  const PartTaker& take_;
  const std::function<void()>* restart_;
  std::size_t baseSize_ = 0;  ///< of the printed addresses
  bool failed_ = false;
};

/// Whether both are numbers of the same value, or no numbers.
bool isSameNumber(const std::string& one, const std::string& other) {
  char* oneEnd = nullptr;
  char* otherEnd = nullptr;
  const double oneNumber = std::strtod(one.c_str(), &oneEnd);
  const double otherNumber = std::strtod(other.c_str(), &otherEnd);
  return oneEnd != one.c_str() && otherEnd != other.c_str() && *oneEnd == 0 && *otherEnd == 0 &&
         (oneNumber == otherNumber || (oneNumber != oneNumber && otherNumber != otherNumber));
}

}  // namespace

bool readImage(Context& context, const Address& address, TreeImage& image) {
  return readImage(context, address, image,
                   [&](const ImagePart& part) { image.parts.push_back(part); });
}

bool readImage(Context& context, const Address& address, TreeImage& image, const PartTaker& take) {
  image.time = timeNow();
  return ImageReader(context, address, image, take, nullptr).run();
}

bool readImage(Context& context, const Address& address, TreeImage& image, const PartTaker& take,
               const std::function<void()>& restart) {
  image.time = timeNow();
  return ImageReader(context, address, image, take, &restart).run();
}

bool isSameValue(const Value& one, const Value& other, const std::string& type) {
  if (one.texts.size() != other.texts.size() || one.isArray != other.isArray) {
    return false;
  }
  const bool isFloating = type == "float" || type == "double";
  for (std::size_t i = 0; i < one.texts.size(); ++i) {
    if (one.texts[i] != other.texts[i] &&
        !(isFloating && isSameNumber(one.texts[i], other.texts[i]))) {
      return false;
    }
  }
  return true;
}

std::string timeNow() {
  return utcTime(microsecondsNow());
}

}  // namespace treectl
