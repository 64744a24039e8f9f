#include "bindings/c/source/block.h"
#include "bindings/c/source/call.h"
#include "bindings/c/source/number_text.h"
#include "bindings/c/source/path.h"
#include "bindings/c/source/server.h"

#include <sstream>

// The servers' functions of treescope.h, which documents them.

namespace treescope_c {

namespace {

using KSTD::KThreadMutexLock;
using ModelSrv::ModelPartIndex;
using ModelSrv::ModelRes;

/// Calls `action(server)`, which returns a `treescope_result`.
template <typename Action>
treescope_result withServer(treescope_server* handle, Action action) {
  return guarded([&] {
    const auto server = find<Server>(handle);
    return server == nullptr ? fail(TREESCOPE_CLOSED) : action(*server);
  });
}

/// Calls `action(part)` with the mutex held, if the arguments are valid.
template <typename Action>
treescope_result withPart(treescope_part* handle, bool argumentsAreValid, Action action) {
  return guarded([&] {
    const auto part = find<Part>(handle);
    if (part == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    if (!argumentsAreValid) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const KThreadMutexLock lock(part->server().loop.manager.clientMutex);
    return part->isRemoved() ? fail(TREESCOPE_CLOSED) : action(*part);
  });
}

/// The result of `withPart`'s action, with the name of the part in the message.
treescope_result about(Part& part, treescope_result result, std::string_view reason = {}) {
  return result == TREESCOPE_SUCCESS ? result : fail(result, part.served().part().name(), reason);
}

treescope_result storeText(treescope_part* handle, int index, bool argumentsAreValid,
                           std::string_view text) {
  const std::optional<ModelPartIndex> element = toIndex(index);
  return withPart(handle, argumentsAreValid && element, [&](Part& part) {
    const bool isWhole = *element == ModelSrv::ModelPartIndex_All && part.served().elements() > 1;
    const std::string counted = !isWhole && hasCountedForm(text) ? countedForm(text) : "";
    std::string reason;
    const ModelRes result =
        part.served().part().store(counted.empty() ? text : counted, true, *element, reason);
    return about(part, toResult(result), reason);
  });
}

treescope_result readText(Part& part, ModelPartIndex index, std::string& text) {
  std::ostringstream stream;
  const ModelRes result = part.served().part().save(stream, index);
  if (result == ModelSrv::ModelRes_Success) {
    text = std::move(stream).str();
  }
  return about(part, toResult(result));
}

template <typename Number>
treescope_result readNumber(treescope_part* handle, int index, Number* value) {
  const std::optional<ModelPartIndex> element = toIndex(index);
  return withPart(handle, value != nullptr && element, [&](Part& part) {
    std::string text;
    const treescope_result result = readText(part, *element, text);
    return result == TREESCOPE_SUCCESS ? about(part, parseNumber(text, *value)) : result;
  });
}

treescope_result publish(treescope_server* handle, const char* name,
                         const ModelSrv::ServerOptions& options) {
  return withServer(handle, [&](Server& server) {
    return name == nullptr ? fail(TREESCOPE_BAD_ARGUMENT)
                           : finish(server.publish(name, options), name);
  });
}

template <typename Number>
treescope_result setReply(treescope_reply* reply, Number value) {
  if (!CallbackScope::isGiven(reply)) {
    return fail(TREESCOPE_BAD_ARGUMENT);
  }
  reply->value = value;
  return TREESCOPE_SUCCESS;
}

}  // namespace

}  // namespace treescope_c

using namespace treescope_c;

treescope_result treescope_server_new(treescope_server** server) {
  return guarded([&] {
    if (server == nullptr) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const auto made = std::make_shared<Server>();
    if (made->loop.manager.pollDescriptor() < 0) {
      return fail(TREESCOPE_NO_DESCRIPTORS);
    }
    *server = reinterpret_cast<treescope_server*>(HandleTable::instance().add(made));
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_server_close(treescope_server* server) {
  return withServer(server, [&](Server& found) {
    const treescope_result result = found.close();
    if (result == TREESCOPE_SUCCESS) {
      HandleTable::instance().remove(reinterpret_cast<std::uintptr_t>(server));
    }
    return result;
  });
}

treescope_result treescope_publish(treescope_server* server, const char* name) {
  return publish(server, name, {});
}

treescope_result treescope_publish_to_group(treescope_server* server, const char* name,
                                            gid_t group) {
  return publish(server, name, {group});
}

treescope_result treescope_unpublish(treescope_server* server, int milliseconds) {
  return withServer(server, [&](Server& found) { return found.unpublish(milliseconds); });
}

int treescope_server_descriptor(treescope_server* server) {
  const auto found = find<Server>(server);
  return found == nullptr ? -1 : found->loop.manager.pollDescriptor();
}

treescope_result treescope_server_dispatch(treescope_server* server, int milliseconds) {
  return withServer(server, [&](Server& found) { return found.loop.dispatch(milliseconds); });
}

treescope_result treescope_server_wake(treescope_server* server) {
  return withServer(server, [&](Server& found) {
    found.loop.manager.wake();
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_add(treescope_server* server, treescope_part* parent,
                               const treescope_part_options* options, treescope_part** part) {
  return withServer(server, [&](Server& found) {
    const auto node = find<Part>(parent);
    if (parent != nullptr && node == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    if (options == nullptr || (node != nullptr && &node->server() != &found)) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    treescope_part* added = nullptr;
    const treescope_result result = found.add(node.get(), *options, added);
    if (result == TREESCOPE_SUCCESS && part != nullptr) {
      *part = added;
    }
    return result;
  });
}

treescope_result treescope_remove(treescope_part* part) {
  return guarded([&] {
    const auto found = find<Part>(part);
    return found == nullptr ? fail(TREESCOPE_CLOSED) : found->server().remove(*found);
  });
}

treescope_result treescope_part_set(treescope_part* part, int index, const char* text) {
  return storeText(part, index, text != nullptr, text == nullptr ? "" : text);
}

treescope_result treescope_part_set_double(treescope_part* part, int index, double value) {
  return guarded([&] { return storeText(part, index, true, numberText(value)); });
}

treescope_result treescope_part_set_int64(treescope_part* part, int index, int64_t value) {
  return guarded([&] { return storeText(part, index, true, numberText(value)); });
}

treescope_result treescope_part_store(treescope_part* part, int index, const void* text,
                                      size_t size) {
  const bool isValid = text != nullptr || size == 0;
  return storeText(part, index, isValid,
                   isValid ? std::string_view(static_cast<const char*>(text), size) : "");
}

treescope_result treescope_part_get(treescope_part* part, int index, char** text, size_t* size) {
  const std::optional<ModelPartIndex> element = toIndex(index);
  return withPart(part, text != nullptr && element, [&](Part& found) {
    std::string value;
    const treescope_result result = readText(found, *element, value);
    if (result == TREESCOPE_SUCCESS) {
      *text = textBlock(value);
    }
    if (result == TREESCOPE_SUCCESS && size != nullptr) {
      *size = value.size();
    }
    return result;
  });
}

treescope_result treescope_part_get_double(treescope_part* part, int index, double* value) {
  return readNumber(part, index, value);
}

treescope_result treescope_part_get_int64(treescope_part* part, int index, int64_t* value) {
  return readNumber(part, index, value);
}

treescope_result treescope_on_store(treescope_part* part, treescope_store_check check,
                                    void* context) {
  return withPart(part, true,
                  [&](Part& found) { return about(found, found.setStoreCheck(check, context)); });
}

treescope_result treescope_on_get(treescope_part* part, treescope_getter getter, void* context) {
  return withPart(part, true,
                  [&](Part& found) { return about(found, found.setGetter(getter, context)); });
}

treescope_result treescope_on_watched(treescope_part* part,
                                      void (*handler)(void* context, bool watched), void* context) {
  return withPart(part, true, [&](Part& found) {
    return about(found, found.setWatchHandler(handler, context));
  });
}

treescope_result treescope_notify(treescope_part* part) {
  return withPart(part, true, [&](Part& found) { return about(found, found.served().notify()); });
}

treescope_result treescope_reply_double(treescope_reply* reply, double value) {
  return setReply(reply, value);
}

treescope_result treescope_reply_int64(treescope_reply* reply, int64_t value) {
  return setReply(reply, value);
}

treescope_result treescope_reply_text(treescope_reply* reply, const void* text, size_t size) {
  return guarded([&] {
    if (!CallbackScope::isGiven(reply) || (text == nullptr && size != 0)) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    reply->value.emplace<std::string>(static_cast<const char*>(text), size);
    return TREESCOPE_SUCCESS;
  });
}
