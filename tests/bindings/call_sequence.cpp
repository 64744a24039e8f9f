#include "tests/bindings/call_sequence.h"

#include <limits>
#include <utility>

namespace bindings_tests {

namespace {

constexpr std::array paths{
    "/",  "",    "/a",        "/a/b", "/#1",          "/#1/#2",  "#3[1]", "/list[0]", "/list",
    "/c", "[1]", "/a/#65535", "/zzz", "/list[65534]", "/#70000", "//a//", "/a[x]",    "#"};
constexpr std::array names{"a", "b", "list", "c", "", "a/b", "#1"};

}  // namespace

CallSequence::CallSequence(std::string name) {
  for (Server& made : servers_) {
    made.name = name + std::to_string(&made - servers_.data());
  }
}

CallSequence::~CallSequence() {
  for (treescope_client* const open : clients_) {
    static_cast<void>(treescope_disconnect(open));
  }
  for (Server& open : servers_) {
    closeServer(open);
  }
}

unsigned CallSequence::run(std::span<const std::uint8_t> bytes) {
  rest_ = bytes;
  unsigned successes = 0;
  while (!rest_.empty()) {
    successes += call() == TREESCOPE_SUCCESS ? 1 : 0;
  }
  return successes;
}

std::uint8_t CallSequence::next() {
  if (rest_.empty()) {
    return 0;
  }
  const std::uint8_t byte = rest_.front();
  rest_ = rest_.subspan(1);
  return byte;
}

const char* CallSequence::path() {
  const std::size_t chosen = next() % (paths.size() + 1);
  return chosen == paths.size() ? nullptr : paths[chosen];
}

std::string CallSequence::text() {
  const std::uint8_t kind = next();
  if (kind < 128) {
    return std::to_string(static_cast<int>(kind) - 64);
  }
  const std::size_t size = std::min<std::size_t>(kind - 128U, rest_.size());
  std::string taken(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(size));
  rest_ = rest_.subspan(size);
  return taken;
}

treescope_part* CallSequence::part() {
  const std::uint8_t kind = next();
  if (kind == 0) {
    return reinterpret_cast<treescope_part*>(client());
  }
  return partSlot(server());
}

treescope_client* CallSequence::client() {
  const std::uint8_t kind = next();
  if (kind == 0) {
    return reinterpret_cast<treescope_client*>(server().handle.load());
  }
  return clientSlot();
}

treescope_result CallSequence::call() {
  const std::uint8_t operation = next();
  switch (operation % 4) {
    case 0:
      return callServer(operation / 4U);
    case 1:
      return callPart(operation / 4U);
    default:
      return callClient(operation / 4U);
  }
}

treescope_result CallSequence::openServer() {
  Server& slot = server();
  if (slot.thread.joinable()) {
    closeServer(slot);
    return TREESCOPE_SUCCESS;
  }
  treescope_server* made = nullptr;
  const treescope_result result = treescope_server_new(&made);
  slot.handle = made;
  slot.thread = std::thread([made] {
    while (treescope_server_dispatch(made, -1) != TREESCOPE_CLOSED) {
    }
  });
  const treescope_result published = treescope_publish(made, slot.name.c_str());
  return result == TREESCOPE_SUCCESS ? published : result;
}

void CallSequence::closeServer(Server& server) {
  // The handles stay where they are: later calls find closed ones.
  static_cast<void>(treescope_server_close(server.handle));
  if (server.thread.joinable()) {
    server.thread.join();
  }
}

treescope_result CallSequence::callServer(unsigned operation) {
  switch (operation % 8) {
    case 0:
      return openServer();
    case 1:
      return treescope_publish(server().handle, "a/b");
    case 2: {
      Server& late = server();
      const treescope_result refused = treescope_refuse(late.request, "too late");
      return refused == TREESCOPE_BAD_ARGUMENT ? treescope_reply_text(late.reply, "late", 4)
                                               : treescope_server_wake(late.handle);
    }
    case 3:
      return treescope_unpublish(server().handle, 0);
    case 4: {
      Server& chosen = server();
      return treescope_publish(chosen.handle, chosen.name.c_str());
    }
    default:
      return addPart();
  }
}

treescope_result CallSequence::addPart() {
  Server& owner = server();
  treescope_part* const parent = next() % 2 == 0 ? nullptr : partSlot(owner).load();
  treescope_part_options options{};
  options.id = next() % 8;
  options.name = names[next() % names.size()];
  options.type = static_cast<treescope_type>(next() % 15);
  options.access = static_cast<treescope_access>(next() % 5);
  const std::uint8_t details = next();
  const std::string value = text();
  options.value = (details & 1U) != 0 ? value.c_str() : nullptr;
  options.elements = (details & 2U) != 0 ? details / 32U : 0;
  options.element_names = (details & 4U) != 0 ? names.data() : nullptr;
  options.unit = (details & 8U) != 0 ? "unit" : nullptr;
  options.maximum = (details & 16U) != 0 ? "10" : nullptr;
  treescope_part* made = nullptr;
  const treescope_result result = treescope_add(owner.handle, parent, &options, &made);
  if (result == TREESCOPE_SUCCESS) {
    partSlot(owner) = made;
  }
  return result;
}

treescope_result CallSequence::useFromCallback(void* context, treescope_part* part) {
  // Parts of the same server only: callbacks of two servers that wait for each other's would be a
  // deadlock of the program.
  Server& owner = *static_cast<Server*>(context);
  const unsigned count = owner.callbacks++;
  treescope_part* const other = owner.parts[count % partCount];
  double number = 0;
  switch (count % 6) {
    case 0:
      treescope_part_set_int64(other, TREESCOPE_ALL, count % 20);
      return TREESCOPE_SUCCESS;
    case 1:
      treescope_part_set(part, TREESCOPE_ALL, "1");
      return treescope_part_get_double(other, TREESCOPE_ALL, &number);
    case 2:
      return treescope_remove(other);
    case 3:
      return treescope_server_close(owner.handle);
    case 4:
      treescope_on_store(part, nullptr, nullptr);
      return treescope_notify(other);
    default:
      return treescope_part_get_double(part, TREESCOPE_ALL, &number);
  }
}

void CallSequence::useFromWatch(void* context, const treescope_update* update) {
  // Called by a dispatch of the main thread.
  CallSequence& own = *static_cast<CallSequence*>(context);
  if (update->depth % 2 == 0) {
    static_cast<void>(treescope_watch_stop(own.watches_[update->depth % own.watches_.size()]));
  } else {
    treescope_description* description = nullptr;
    own.described_ = treescope_describe(own.clients_[0], update->path, &description);
    treescope_free(description);
  }
}

bool CallSequence::useFromVisitor(void* context, const treescope_tree_part* part) {
  CallSequence& own = *static_cast<CallSequence*>(context);
  char* value = nullptr;
  switch (own.next() % 4) {
    case 0:
      own.described_ = treescope_get(own.clients_[0], part->path, &value, nullptr);
      treescope_free(value);
      return true;
    case 1:
      static_cast<void>(treescope_client_dispatch(own.clients_[0], 0));
      return part->depth < 3;
    case 2:
      static_cast<void>(treescope_disconnect(own.clients_[part->depth % own.clients_.size()]));
      return true;
    default:
      return part->result != TREESCOPE_SUCCESS;
  }
}

treescope_result CallSequence::setCallback() {
  Server& owner = server();
  treescope_part* const target = partSlot(owner);
  switch (next() % 4) {
    case 0:
      return treescope_on_store(
          target,
          [](void* context, const treescope_store_request* request) {
            static_cast<Server*>(context)->request = request;
            const treescope_result result = useFromCallback(context, request->part);
            return result == TREESCOPE_SUCCESS ? result : treescope_refuse(request, "not now");
          },
          &owner);
    case 1:
      return treescope_on_get(
          target,
          [](void* context, treescope_part* part, treescope_reply* reply) {
            static_cast<Server*>(context)->reply = reply;
            static_cast<void>(useFromCallback(context, part));
            return treescope_reply_int64(reply, 3);
          },
          &owner);
    case 2:
      return treescope_on_watched(
          target, [](void* context, bool) { static_cast<Server*>(context)->callbacks += 1; },
          &owner);
    default:
      return treescope_on_get(target, nullptr, nullptr);
  }
}

treescope_result CallSequence::callPart(unsigned operation) {
  const auto index = static_cast<int>(next() % 4) - 1;
  char* value = nullptr;
  double real = 0;
  std::int64_t integer = 0;
  treescope_result result = TREESCOPE_SUCCESS;
  switch (operation % 10) {
    case 0:
      return setCallback();
    case 1:
      return treescope_part_set(part(), index, text().c_str());
    case 2:
      return treescope_part_set_double(part(), index, next() / 8.0);
    case 3:
      return treescope_part_set_int64(part(), index, next());
    case 4:
      result = treescope_part_get(part(), index, &value, nullptr);
      treescope_free(value);
      return result;
    case 5:
      return treescope_part_get_double(part(), index, &real);
    case 6:
      return treescope_part_get_int64(part(), index, &integer);
    case 7:
      return treescope_notify(part());
    case 8:
      return treescope_part_set_double(part(), index, std::numeric_limits<double>::quiet_NaN());
    default:
      return treescope_remove(part());
  }
}

treescope_result CallSequence::storeAsClient(unsigned operation) {
  std::int64_t integer = 0;
  switch (operation % 4) {
    case 0: {
      const std::string bytes = text();
      return treescope_store(client(), path(), bytes.data(), bytes.size(), next() % 3);
    }
    case 1:
      return treescope_set_double(client(), path(), next() / 8.0);
    case 2:
      return treescope_set_int64(client(), path(), next());
    default:
      return treescope_get_int64(client(), path(), &integer);
  }
}

treescope_result CallSequence::callClient(unsigned operation) {
  char* value = nullptr;
  treescope_child* children = nullptr;
  treescope_description* description = nullptr;
  std::size_t count = 0;
  double real = 0;
  treescope_result result = TREESCOPE_SUCCESS;
  switch (operation % 15) {
    case 0: {
      treescope_client*& slot = clientSlot();
      static_cast<void>(treescope_disconnect(slot));
      return treescope_connect(server().name.c_str(), &slot);
    }
    case 1:
      result = treescope_get(client(), path(), &value, &count);
      break;
    case 2:
      result = treescope_set(client(), path(), text().c_str());
      break;
    case 3:
      result = treescope_list(client(), path(), &children, &count);
      break;
    case 4:
      result = treescope_describe(client(), path(), &description);
      break;
    case 5:
      result = treescope_resolve(client(), path(), &value);
      break;
    case 6:
      result = treescope_get_double(client(), path(), &real);
      break;
    case 7:
      result = treescope_client_dispatch(client(), 0);
      break;
    case 8:
      result = storeAsClient(next());
      break;
    case 12:
      result = treescope_read_tree(client(), path(), next() % 8 == 0 ? nullptr : useFromVisitor,
                                   this, nullptr);
      break;
    case 13:
      // Outputs that are missing.
      result = next() % 2 == 0 ? treescope_get(client(), path(), nullptr, nullptr)
                               : treescope_list(client(), path(), &children, nullptr);
      break;
    case 9:
      result = treescope_on_event(
          client(),
          [](void* context, treescope_event) {
            static_cast<void>(treescope_client_wake(static_cast<treescope_client*>(context)));
          },
          client());
      break;
    case 10: {
      treescope_watch*& slot = watches_[next() % watches_.size()];
      const unsigned flags = next() % 3;
      result =
          treescope_watch_start(client(), path(), flags, next() % 4, useFromWatch, this, &slot);
      break;
    }
    case 11:
      result = treescope_watch_stop(watches_[next() % watches_.size()]);
      break;
    default:
      result = next() % 4 == 0 ? treescope_disconnect(client()) : treescope_client_wake(client());
      break;
  }
  treescope_free(value);
  treescope_free(children);
  treescope_free(description);
  return result;
}

}  // namespace bindings_tests
