#include <filesystem>

#include "bench/peers/peer.h"

namespace bench::peers {

namespace {

/// A file of values in sections, and a tool that reads it whole each time.
class Augeas : public Peer {
 public:
  Augeas(const Directory& directory, const Shape& shape)
      : shape_(shape), root_(directory.path("augeas")) {
    std::filesystem::create_directory(root_);
    std::string text;
    for (std::size_t i = 0; i < shape.total(); ++i) {
      const std::string path = pathOf(shape, i);
      const std::size_t slash = path.rfind('/');
      if (i % Shape::valuesPerGroup == 0) {
        text += '[' + path.substr(1, slash - 1) + "]\n";
      }
      text += path.substr(slash + 1) + " = 0\n";
    }
    static_cast<void>(directory.write("augeas/values", text));
  }

  [[nodiscard]] std::string name() const override { return "Augeas"; }

  [[nodiscard]] Task read() const override {
    return {"augtool get, a file of sections", tool({"get", "/files/values" + pathOf(shape_, 0)}),
            1};
  }

  [[nodiscard]] Task write(int value) const override {
    return {"augtool set, saved",
            tool({"-s", "set", "/files/values" + pathOf(shape_, 0), std::to_string(value)}), 0};
  }

  [[nodiscard]] std::vector<Task> list() const override {
    return {{"augtool print", tool({"print", "/files/values"}), shape_.total()}};
  }

  [[nodiscard]] Servers servers() const override { return {}; }

  [[nodiscard]] std::string whyNoUpdates() const override {
    return "Augeas edits files: there is no server, and nobody to tell of a change.";
  }

 private:
  [[nodiscard]] Words tool(const Words& rest) const {
    // Loads the one lens that is needed.
    Words words{"augtool", "-r", root_, "-A", "-t", "Puppet.lns incl /values"};
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
  }

  Shape shape_;
  std::string root_;
};

}  // namespace

std::unique_ptr<Peer> serveAugeas(const Directory& directory, const Shape& shape) {
  return std::make_unique<Augeas>(directory, shape);
}

}  // namespace bench::peers
