#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/context.h"
#include "tools/values.h"

namespace treectl {

/// The values of a subtree at one time, as a dump has them.

struct ImagePart {
  std::string address;  ///< below the base, such as "/load"; "" for the base itself
  std::string type;     ///< empty if it is not known
  std::string access;   ///< "rw", "ro", "protected", or empty
  Value value;
  std::string time;  ///< of a recording
  // Of a live tree, else empty.
  Connection* connection = nullptr;
  Chain chain;
};

struct TreeImage {
  std::string base;  ///< the address, with the server; empty if it is not known
  std::string time;
  std::vector<ImagePart> parts;  ///< in the server's order
};

/// Reads what `address` stands for: a part, everything below a node, or the parts that match. False
/// after an error, which has been reported.
[[nodiscard]] bool readImage(Context& context, const Address& address, TreeImage& image);

/// The same, but `take` gets each part, and the image none, in the same order; its base and time
/// are there before. If the address has no wildcards, `take` is called only when nothing can fail
/// any more.
using PartTaker = std::function<void(const ImagePart& part)>;
[[nodiscard]] bool readImage(Context& context, const Address& address, TreeImage& image,
                             const PartTaker& take);
/// The same, but `take` is called while more is read, which may fail, and memory does not grow with
/// the number of parts. `restart` may be called instead of `take`: what was taken is void then.
[[nodiscard]] bool readImage(Context& context, const Address& address, TreeImage& image,
                             const PartTaker& take, const std::function<void()>& restart);

/// Appends an image to a text as a JSON array: a header object, then an object a part.
class ImageWriter {
 public:
  explicit ImageWriter(std::string& out) : out_(out) {}
  void addHeader(const TreeImage& image);
  void addPart(const ImagePart& part);
  void end();

 private:
  void setKind(const ImagePart& part);
  /// Adds a part in one step if neither its address nor its single value needs an escape, as most;
  /// false if one does.
  bool addPlainPart(const ImagePart& part);

  std::string& out_;
  // What the last part had, and its JSON.
  std::string type_, access_, kind_;
  bool isText_ = true;  ///< of the type, or that is not known
};

/// Reads a dump, or a file that the shell's `to` wrote. `path` may be "-" for standard input. False
/// after an error, which has been reported.
[[nodiscard]] bool readImageFile(Context& context, const std::string& path, TreeImage& image);

/// Parses the text of such a file; an error is a line without the file's name.
[[nodiscard]] bool parseImage(const std::string& text, TreeImage& image, std::string& error);
/// The same for a dump only, and for lines of `to` only.
[[nodiscard]] bool parseJsonImage(const std::string& text, TreeImage& image, std::string& error);
[[nodiscard]] bool parseSavedCommands(const std::string& text, TreeImage& image,
                                      std::string& error);

/// Parses a recording: a header, then a change a line, which become the parts. An incomplete last
/// line is left out, and so are losses of servers.
[[nodiscard]] bool parseRecording(std::string text, TreeImage& image, std::string& error);

/// Whether two values are the same: numbers by value, others by bytes.
[[nodiscard]] bool isSameValue(const Value& one, const Value& other, const std::string& type);

/// The time of now as "2026-11-21T09:30:01.000123Z".
[[nodiscard]] std::string timeNow();

}  // namespace treectl
