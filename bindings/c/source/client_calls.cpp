#include <type_traits>

#include "bindings/c/source/block.h"
#include "bindings/c/source/call.h"
#include "bindings/c/source/client.h"
#include "bindings/c/source/number_text.h"
#include "bindings/c/source/value_types.h"

// The clients' functions of treescope.h, which documents them.

namespace treescope_c {

namespace {

using ModelSrv::ModelRes;

/// Calls `request(client, path)` if the arguments are valid; it returns a `treescope_result`.
template <typename Request>
treescope_result withPath(treescope_client* handle, const char* path, bool argumentsAreValid,
                          Request request) {
  return guarded([&] {
    const auto client = find<Client>(handle);
    if (client == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    if (path == nullptr || !argumentsAreValid) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const std::optional<Path> parsed = parsePath(path);
    return parsed ? request(*client, *parsed) : failOfPath(path);
  });
}

treescope_result storeText(treescope_client* handle, const char* path, bool argumentsAreValid,
                           std::string_view text, bool flag = false) {
  return withPath(handle, path, argumentsAreValid, [&](Client& client, const Path& parsed) {
    std::string reason;
    const ModelRes result = client.store(parsed, text, flag, reason);
    return finish(result, path, reason);
  });
}

template <typename Number>
treescope_result getNumber(treescope_client* handle, const char* path, Number* value) {
  return withPath(handle, path, value != nullptr, [&](Client& client, const Path& parsed) {
    std::string text;
    const ModelRes result = client.read(parsed, text);
    if (result != ModelSrv::ModelRes_Success) {
      return finish(result, path);
    }
    const treescope_result isNumber = parseNumber(text, *value);
    return isNumber == TREESCOPE_SUCCESS ? isNumber
                                         : fail(isNumber, path, "the value is no such number");
  });
}

treescope_child* childBlock(const IdChain& ids, const std::vector<std::string>& names) {
  std::size_t size = ids.size() * sizeof(treescope_child);
  for (const std::string& name : names) {
    size += Block::sizeOf(name);
  }
  Block block(size);
  auto* const children = block.take<treescope_child>(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) {
    children[i] = {ids[i], block.bytes(names[i])};
  }
  return block.release<treescope_child>();
}

std::size_t sizeOf(const ModelSrv::PartDescription& description) {
  const ModelSrv::PartAttributes& stated = description.attributes;
  std::size_t size = sizeof(treescope_description);
  for (const std::string* const text :
       {&stated.unit, &stated.minimum, &stated.maximum, &stated.text}) {
    size += Block::sizeOf(*text);
  }
  for (const std::string& name : description.elementNames) {
    size += sizeof(treescope_bytes) + Block::sizeOf(name);
  }
  for (const std::string& choice : stated.choices) {
    size += sizeof(const char*) + Block::sizeOf(choice);
  }
  return size;
}

treescope_description* descriptionBlock(const ModelSrv::PartDescription& description) {
  const ModelSrv::PartAttributes& stated = description.attributes;
  Block block(sizeOf(description));
  auto* const result = block.take<treescope_description>(1);
  auto* const names = block.take<treescope_bytes>(description.elementNames.size());
  auto* const choices = block.take<const char*>(stated.choices.size());
  result->type = typeOf(description.type);
  result->access = accessOf(description.access);
  result->watchable = description.subscribable;
  result->elements = description.elements;
  result->unit = block.text(stated.unit);
  result->minimum = block.text(stated.minimum);
  result->maximum = block.text(stated.maximum);
  result->text = block.text(stated.text);
  for (std::size_t i = 0; i < description.elementNames.size(); ++i) {
    names[i] = block.bytes(description.elementNames[i]);
  }
  for (std::size_t i = 0; i < stated.choices.size(); ++i) {
    choices[i] = block.text(stated.choices[i]);
  }
  result->element_names = description.elementNames.empty() ? nullptr : names;
  result->choices = stated.choices.empty() ? nullptr : choices;
  result->choice_count = stated.choices.size();
  return block.release<treescope_description>();
}

}  // namespace

}  // namespace treescope_c

using namespace treescope_c;

treescope_result treescope_connect(const char* name, treescope_client** client) {
  return guarded([&] {
    if (name == nullptr || client == nullptr) {
      return fail(TREESCOPE_BAD_ARGUMENT);
    }
    const auto made = std::make_shared<Client>();
    const ModelRes result = made->connect(name);
    if (result == ModelSrv::ModelRes_Success) {
      *client = reinterpret_cast<treescope_client*>(HandleTable::instance().add(made));
    }
    return finish(result, name);
  });
}

treescope_result treescope_disconnect(treescope_client* client) {
  return guarded([&] {
    const auto found = find<Client>(client);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    HandleTable::instance().remove(reinterpret_cast<std::uintptr_t>(client));
    found->close();
    return TREESCOPE_SUCCESS;
  });
}

int treescope_client_descriptor(treescope_client* client) {
  const auto found = find<Client>(client);
  return found == nullptr ? -1 : found->loop.manager.pollDescriptor();
}

treescope_result treescope_client_dispatch(treescope_client* client, int milliseconds) {
  return guarded([&] {
    const auto found = find<Client>(client);
    return found == nullptr ? fail(TREESCOPE_CLOSED) : found->loop.dispatch(milliseconds);
  });
}

treescope_result treescope_client_wake(treescope_client* client) {
  return guarded([&] {
    const auto found = find<Client>(client);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    found->loop.manager.wake();
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_on_event(treescope_client* client,
                                    void (*handler)(void* context, treescope_event event),
                                    void* context) {
  return guarded([&] {
    const auto found = find<Client>(client);
    if (found == nullptr) {
      return fail(TREESCOPE_CLOSED);
    }
    found->setEventHandler(handler, context);
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_get(treescope_client* client, const char* path, char** text,
                               size_t* size) {
  return withPath(client, path, text != nullptr, [&](Client& found, const Path& parsed) {
    std::string value;
    const ModelRes result = found.read(parsed, value);
    if (result != ModelSrv::ModelRes_Success) {
      return finish(result, path);
    }
    *text = textBlock(value);
    if (size != nullptr) {
      *size = value.size();
    }
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_get_double(treescope_client* client, const char* path, double* value) {
  return getNumber(client, path, value);
}

treescope_result treescope_get_int64(treescope_client* client, const char* path, int64_t* value) {
  return getNumber(client, path, value);
}

treescope_result treescope_set(treescope_client* client, const char* path, const char* text) {
  return storeText(client, path, text != nullptr, text == nullptr ? "" : text);
}

treescope_result treescope_set_double(treescope_client* client, const char* path, double value) {
  return guarded([&] { return storeText(client, path, true, numberText(value)); });
}

treescope_result treescope_set_int64(treescope_client* client, const char* path, int64_t value) {
  return guarded([&] { return storeText(client, path, true, numberText(value)); });
}

treescope_result treescope_store(treescope_client* client, const char* path, const void* text,
                                 size_t size, unsigned flags) {
  const bool isValid = (text != nullptr || size == 0) && (flags & ~TREESCOPE_LOADER) == 0;
  return storeText(client, path, isValid,
                   isValid ? std::string_view(static_cast<const char*>(text), size) : "",
                   (flags & TREESCOPE_LOADER) != 0);
}

treescope_result treescope_list(treescope_client* client, const char* path,
                                treescope_child** children, size_t* count) {
  const bool isValid = children != nullptr && count != nullptr;
  return withPath(client, path, isValid, [&](Client& found, const Path& parsed) {
    IdChain ids;
    std::vector<std::string> names;
    const ModelRes result = found.list(parsed, ids, names);
    if (result != ModelSrv::ModelRes_Success) {
      return finish(result, path);
    }
    *children = childBlock(ids, names);
    *count = ids.size();
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_describe(treescope_client* client, const char* path,
                                    treescope_description** description) {
  return withPath(client, path, description != nullptr, [&](Client& found, const Path& parsed) {
    ModelSrv::PartDescription learned;
    const ModelRes result = found.describe(parsed, learned);
    if (result != ModelSrv::ModelRes_Success) {
      return finish(result, path);
    }
    *description = descriptionBlock(learned);
    return TREESCOPE_SUCCESS;
  });
}

treescope_result treescope_resolve(treescope_client* client, const char* path, char** ids) {
  return withPath(client, path, ids != nullptr, [&](Client& found, const Path& parsed) {
    IdChain chain;
    const ModelRes result = found.resolve(parsed, chain);
    if (result != ModelSrv::ModelRes_Success) {
      return finish(result, path);
    }
    *ids = textBlock(idPath(chain, parsed.index));
    return TREESCOPE_SUCCESS;
  });
}
