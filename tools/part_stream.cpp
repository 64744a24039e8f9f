#include "tools/part_stream.h"

#include <algorithm>

#include "tools/name_pattern.h"

namespace treectl {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using ModelSrv::TreePart;

bool SiblingNames::add(std::string_view name) {
  if (isAscending_) {
    const std::size_t begin = ends_.size() < 2 ? 0 : ends_[ends_.size() - 2];
    if (ends_.empty() || name > std::string_view(joined_).substr(begin)) {
      joined_ += name;
      ends_.push_back(joined_.size());
      return true;
    }
    isAscending_ = false;
    std::size_t from = 0;
    for (const std::size_t end : ends_) {
      names_.insert(joined_.substr(from, end - from));
      from = end;
    }
  }
  return names_.emplace(name).second;
}

PartStream::PartStream(const Match& match, std::size_t baseSize, const PartTaker& take,
                       const std::function<void()>& restart)
    : match_(match), baseSize_(baseSize), take_(take), restart_(restart) {
  part_.connection = match.connection;
}

bool PartStream::add(const TreePart& part) {
  const std::size_t depth = part.chain.size() - std::min(part.chain.size(), match_.chain.size());
  if (depth == 0) {
    // After a time-out the whole tree is read again.
    restart_();
    levels_.clear();
    address_ = match_.address;
    return addNode(part);
  }
  if (depth > levels_.size()) {
    return true;  // Without its node, it has no place.
  }
  levels_.resize(depth);
  Level& level = levels_.back();
  address_.resize(level.addressSize);
  address_ += '/';
  if (!part.name.empty() && level.names.add(part.name)) {
    appendEscapedName(address_, part.name);
  } else {
    address_ += '#';
    address_ += std::to_string(part.chain.back());
  }
  if (part.result == ModelSrv::ModelRes_NoValue) {
    // A part whose value is missing is in no dump.
    return !part.isNode && !part.type.empty() ? true : addNode(part);
  }
  return addPart(part);
}

bool PartStream::addNode(const TreePart& node) {
  levels_.push_back({address_.size(), {}});
  if (!node.isNode || node.childrenSorted) {
    return true;
  }
  // An older server does not say.
  Children children;
  const ModelRes result =
      match_.connection->readChildren(Chain(node.chain.begin(), node.chain.end()), children);
  if (result == ModelSrv::ModelRes_NoSuchPart) {
    return true;  // It has left meanwhile.
  }
  result_ = result;
  isUnsorted_ = !std::is_sorted(children.ids.begin(), children.ids.end());
  return result_ == ModelRes_Success && !isUnsorted_;
}

bool PartStream::addPart(const TreePart& part) {
  part_.chain.assign(part.chain.begin(), part.chain.end());
  if (part.result != ModelRes_Success ||
      (part.elements > 0 && !splitElements(part.text, part.elements, part_.value))) {
    result_ = match_.connection->readValue(part_.chain, ModelSrv::ModelPartIndex_All, part_.value);
    if (result_ != ModelRes_Success) {
      return false;
    }
  } else if (part.elements == 0) {
    part_.value.texts.resize(1);
    part_.value.texts.front() = part.text;
    part_.value.isArray = false;
  }
  part_.address.assign(address_, baseSize_);
  if (part_.type != part.type) {
    part_.type = part.type;
  }
  if (access_ != part.access) {
    access_ = part.access;
    part_.access = accessName(access_);
  }
  take_(part_);
  return true;
}

}  // namespace treectl
