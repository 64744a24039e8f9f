#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/tree_pages.h"

namespace ModelSrv::internal {

/// Reads a subtree for a client's program: in pages, or from an older server part by part. Locks
/// the client mutex for each exchange, and not for the visitor.
class TreeReader {
 public:
  /// `root` and `visit` outlive this. `chain` is that of the part to read.
  TreeReader(ModelRoot& root, std::vector<ModelPartId> chain, const TreeVisitor& visit);

  ModelRes read(TreeReading& reading);

 private:
  ModelRes readPage(bool continues, TreePageReader& page);
  ModelRes visitPage(TreePageReader& page, bool& ends);
  ModelRes fetchLeftOut(TreePageReader::LeftOut leftOut, TreePart& part);
  ModelRes readByParts(TreeReading& reading);
  ModelRes visitOne(const std::string& name, std::vector<ModelPartId>& children,
                    std::vector<std::string>& names, bool& ends);
  /// The result of `request` on the client, with the client mutex held.
  template <typename Request>
  ModelRes withClient(Request request);

  ModelRoot& root_;
  const TreeVisitor& visit_;
  const std::size_t topDepth_;
  std::vector<ModelPartId> chain_;         ///< of the part that is visited
  std::vector<ModelPartId> ids_;           ///< the same, below the part that is read
  std::vector<std::uint8_t> bytes_;        ///< of the page
  std::string text_;                       ///< that was left out of the page
  std::vector<std::string> elementNames_;  ///< likewise
  std::vector<std::string_view> elementNameViews_;
};

}  // namespace ModelSrv::internal
