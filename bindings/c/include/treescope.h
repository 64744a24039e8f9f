#pragma once

/* Model servers and their clients, for programs in C (C11) and for everything that can call C.
 *
 * A client reads, stores and watches the values of a server's tree. A server publishes a tree. Each
 * has an event loop of its own: the program calls `..._dispatch`, either in a loop or when
 * `..._descriptor` becomes readable in a loop that it has already.
 *
 * Handles. A `treescope_client *` and its like is a number and not an address. One that is NULL, of
 * another kind or closed is an error (TREESCOPE_CLOSED), never a crash.
 *
 * Paths. "/drive/gains[1]": the names of the parts from the root down, and at the end optionally
 * the index of an element in brackets. The leading "/" may be left out; "" and "/" are the root. A
 * name that several parts have means the first. "#7" instead of a name is the part with the id 7. A
 * path of ids is the fastest: no name has to be looked up (`treescope_resolve`).
 *
 * Values are text here: an integer in decimal, "true" or "false", a floating-point number in its
 * shortest form with ".", a text as its bytes, an array as the texts of its elements, separated by
 * line feeds. No function depends on the locale.
 *
 * Ownership. Strings that are passed in are copied. What a function allocates belongs to the
 * caller, in one piece: release it with `treescope_free`. What a callback gets is valid inside it.
 *
 * Threads. Any thread may call any function at any time. Calls about one client (or about one
 * server and its parts) wait for each other. Callbacks run inside `..._dispatch`, on the thread
 * that called it; a getter also inside `treescope_part_get` and its like. After a handle has been
 * closed by another thread, its callbacks are not running and are not called any more. A callback
 * may call every function except: `..._dispatch` of its own client or server; in a server's, what
 * closes the server or adds or removes parts. Those are TREESCOPE_BUSY. A call about another client
 * or server waits for its callbacks, as for a mutex.
 *
 * Results. Every function that can fail returns a `treescope_result`; then the outputs are
 * unchanged, and `treescope_message` says why. No C++ exception leaves the library, and callbacks
 * must neither throw nor jump out. Only one of two processes after fork(2) may go on to use the
 * library. dlclose(3) leaves it in memory. */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#define TREESCOPE_CHECKED __attribute__((warn_unused_result))

/* In C++ an enumeration may then have any value, as in C. */
#ifdef __cplusplus
#define TREESCOPE_ANY_INT : int
extern "C" {
#else
#define TREESCOPE_ANY_INT
#endif
#pragma GCC visibility push(default)

typedef enum treescope_result TREESCOPE_ANY_INT {
  TREESCOPE_SUCCESS = 0,
  TREESCOPE_NO_SUCH_PART = 2,      /* no part has this path */
  TREESCOPE_NO_SUCH_ELEMENT = 3,   /* the part has no element with this index */
  TREESCOPE_NO_VALUE = 4,          /* a node, or a part without a value */
  TREESCOPE_BAD_TEXT = 5,          /* the text is no value of the part's, or the wanted, type */
  TREESCOPE_OUT_OF_RANGE = 6,      /* beyond the type, or beyond the part's limits */
  TREESCOPE_READ_ONLY = 7,         /* no client may store */
  TREESCOPE_PROTECTED = 8,         /* a store requires TREESCOPE_LOADER */
  TREESCOPE_VETOED = 9,            /* the server refused the value; the message says why */
  TREESCOPE_TOO_LARGE = 10,        /* above the limit of a value or of a reply */
  TREESCOPE_NOT_SUBSCRIBABLE = 11, /* the part does not let clients watch it */
  TREESCOPE_LIMIT_REACHED = 13,    /* the server holds no more for this client */
  TREESCOPE_BAD_REQUEST = 14,      /* the server, an older one perhaps, does not know the request */
  TREESCOPE_DUPLICATE_ID = 15,     /* a sibling has the same id */
  TREESCOPE_BAD_ARGUMENT = 16,     /* NULL, or a value that the function does not accept */
  TREESCOPE_UNREACHABLE = 17,      /* the server stands for a device that it cannot reach */
  TREESCOPE_DENIED = 18,           /* the server's rules do not let this client do that */
  TREESCOPE_NO_SERVER = 64,        /* no server has the name, or the connection is lost */
  TREESCOPE_TIMEOUT = 65, /* no reply in time (a store may still be applied); nothing to dispatch */
  TREESCOPE_NAME_IN_USE = 66,     /* another live server has this name */
  TREESCOPE_BAD_NAME = 67,        /* not a valid port name */
  TREESCOPE_NOT_PERMITTED = 68,   /* another user's port, or no pipe with one link */
  TREESCOPE_REFUSED = 69,         /* the server accepts no further connection */
  TREESCOPE_PROTOCOL_ERROR = 70,  /* the peer broke the protocol; the outcome is unknown */
  TREESCOPE_NO_DESCRIPTORS = 71,  /* this process or the system is out of descriptors */
  TREESCOPE_SYSTEM_ERROR = 72,    /* another error of the system, such as out of memory */
  TREESCOPE_BUSY = 73,            /* in use in another role, or not allowed in a callback */
  TREESCOPE_OUTCOME_UNKNOWN = 74, /* no reply, also of the device behind a server: stored, or not */
  TREESCOPE_NO_SPACE = 75,        /* /tmp, where the pipes are, is full */
  TREESCOPE_NOT_WRITABLE = 76,    /* no pipe can be made in /tmp */
  TREESCOPE_NOT_SUPPORTED = 77,   /* the server is too old for this */
  TREESCOPE_CLOSED = 128          /* the handle is NULL, closed or of another kind */
} treescope_result;

/* A line of English about `result`, for messages. Never NULL, constant. */
const char* treescope_result_text(treescope_result result);

/* Why the last call of this thread that failed did so: what it was about, and the server's reason
 * or the result's text. One line; "" if none has failed. Valid until another one fails. */
const char* treescope_message(void);

/* Releases what a function of this library has allocated. NULL is allowed. */
void treescope_free(void* allocated);
const char* treescope_version(void); /* such as "0.1.0" */
#define TREESCOPE_ALL (-1)           /* the whole value instead of one element */

typedef enum treescope_type TREESCOPE_ANY_INT {
  TREESCOPE_UNKNOWN = 0, /* a server that does not say, or a class of its own */
  TREESCOPE_NODE = 1,    /* a part with children and without a value */
  TREESCOPE_BOOL = 2,
  TREESCOPE_INT8 = 3,
  TREESCOPE_INT16 = 4,
  TREESCOPE_INT32 = 5,
  TREESCOPE_INT64 = 6,
  TREESCOPE_UINT8 = 7,
  TREESCOPE_UINT16 = 8,
  TREESCOPE_UINT32 = 9,
  TREESCOPE_UINT64 = 10,
  TREESCOPE_FLOAT = 11,
  TREESCOPE_DOUBLE = 12,
  TREESCOPE_TEXT = 13
} treescope_type;

/* Which clients may store. */
typedef enum treescope_access TREESCOPE_ANY_INT {
  TREESCOPE_NO_ACCESS = 0,  /* no value; in `treescope_part_options`: read-write */
  TREESCOPE_READ_WRITE = 1, /* any */
  TREESCOPE_READ = 2,       /* none */
  TREESCOPE_LOADER_ONLY = 3 /* those that pass TREESCOPE_LOADER */
} treescope_access;

/* Bytes with their number: names and texts may contain any byte. A zero byte follows them. */
typedef struct treescope_bytes {
  const char* data;
  size_t size;
} treescope_bytes;

/* ---- Clients -------------------------------------------------------------------------------- */

typedef struct treescope_client treescope_client;
typedef struct treescope_watch treescope_watch;

/* Connects to the server of port `name`, for at most 2 s, and sets `*client`. A connection that is
 * lost later is made again when the server is back, by a dispatch or by the next request. */
TREESCOPE_CHECKED treescope_result treescope_connect(const char* name, treescope_client** client);

/* Ends the connection and its watches and closes their handles. Allowed in a callback. */
treescope_result treescope_disconnect(treescope_client* client);

/* A descriptor that is readable (POLLIN) whenever `treescope_client_dispatch(client, 0)` has
 * something to do. Constant; not to be read, changed or closed. -1 if there is none. */
int treescope_client_descriptor(treescope_client* client);

/* Waits at most `milliseconds` (0: does not wait; below 0: no limit) for events and calls what they
 * are for. TREESCOPE_TIMEOUT if there was nothing. Others may use the client while it waits. */
treescope_result treescope_client_dispatch(treescope_client* client, int milliseconds);

/* Makes one call of the dispatch, the present or the next one, return. Not for signal handlers. */
treescope_result treescope_client_wake(treescope_client* client);

typedef enum treescope_event TREESCOPE_ANY_INT {
  TREESCOPE_LOST = 1,    /* the server has ended; values may change without an update from now on */
  TREESCOPE_RESTORED = 2 /* there is a new connection, and the watches are renewed on it */
} treescope_event;

/* Calls `handler` for each event of the connection, in place of an earlier one; NULL: none. */
treescope_result treescope_on_event(treescope_client* client,
                                    void (*handler)(void* context, treescope_event event),
                                    void* context);

/* Reads the value at `path` as text. `*text` has a zero byte at its end and is to be freed; `size`,
 * if not NULL, gets the number of bytes before it. */
TREESCOPE_CHECKED treescope_result treescope_get(treescope_client* client, const char* path,
                                                 char** text, size_t* size);

/* Reads a number: "true" is 1 and "false" is 0. TREESCOPE_BAD_TEXT for other texts, whole
 * arrays and, as an int64_t, fractions; TREESCOPE_OUT_OF_RANGE for what an int64_t cannot hold. */
TREESCOPE_CHECKED treescope_result treescope_get_double(treescope_client* client, const char* path,
                                                        double* value);
TREESCOPE_CHECKED treescope_result treescope_get_int64(treescope_client* client, const char* path,
                                                       int64_t* value);

/* Stores a value; the server applies it at most once. On any result nothing has changed, except
 * TREESCOPE_OUTCOME_UNKNOWN, TREESCOPE_TIMEOUT and TREESCOPE_PROTOCOL_ERROR. */
TREESCOPE_CHECKED treescope_result treescope_set(treescope_client* client, const char* path,
                                                 const char* text);
TREESCOPE_CHECKED treescope_result treescope_set_double(treescope_client* client, const char* path,
                                                        double value);
TREESCOPE_CHECKED treescope_result treescope_set_int64(treescope_client* client, const char* path,
                                                       int64_t value);

/* The same with any bytes. `flags`: 0, or TREESCOPE_LOADER for TREESCOPE_LOADER_ONLY parts, too. */
#define TREESCOPE_LOADER 1u
TREESCOPE_CHECKED treescope_result treescope_store(treescope_client* client, const char* path,
                                                   const void* text, size_t size, unsigned flags);

typedef struct treescope_child {
  uint16_t id;
  treescope_bytes name; /* may be empty, and need not be unique */
} treescope_child;

/* The children of a part in the server's order: one block, to be freed, also if `*count` is 0. */
TREESCOPE_CHECKED treescope_result treescope_list(treescope_client* client, const char* path,
                                                  treescope_child** children, size_t* count);

typedef struct treescope_description {
  treescope_type type;
  treescope_access access;
  bool watchable;                       /* true too if the server does not say */
  size_t elements;                      /* of an array; 0 for a single value */
  const treescope_bytes* element_names; /* one for each element; NULL if they have none */
  const char* unit;                     /* this and what follows: "" if not stated */
  const char* minimum;
  const char* maximum;
  const char* text;           /* a line about the part, for a person */
  const char* const* choices; /* the allowed values; NULL if any is */
  size_t choice_count;
} treescope_description;

/* What the part at `path` is: one block, to be freed. */
TREESCOPE_CHECKED treescope_result treescope_describe(treescope_client* client, const char* path,
                                                      treescope_description** description);

/* The same path with ids only, such as "#1/#3[1]", as the server's tree is now; to be freed. */
TREESCOPE_CHECKED treescope_result treescope_resolve(treescope_client* client, const char* path,
                                                     char** ids);

/* A part of a tree that is read. Valid in the visitor only. */
typedef struct treescope_tree_part {
  const char* path;    /* the part's path of ids, such as "#1/#3"; "" is the root */
  const uint16_t* ids; /* the same ids, from the root down */
  size_t depth;        /* and their number */
  treescope_bytes name;
  treescope_type type; /* this and what follows: as in `treescope_description` */
  treescope_access access;
  bool watchable;
  size_t elements;
  const treescope_bytes* element_names;
  treescope_result result; /* of the value; TREESCOPE_NO_VALUE of a node */
  treescope_bytes text;    /* the value, with TREESCOPE_SUCCESS */
  double number;           /* the same as a number, as `treescope_get_double` has it; else a NaN */
} treescope_tree_part;
typedef bool (*treescope_visitor)(void* context, const treescope_tree_part* part);

/* Reads the part at `path` and everything below it in few exchanges, and calls `visitor` for each:
 * a node before its children, these in the ascending order of their ids. It is called in here, may
 * call every function, and returns whether it wants more. `*changed`, if not NULL, says on any
 * result whether parts came or went meanwhile, so that some may be missing. Without success parts
 * may have been visited; TREESCOPE_CLOSED also if the client has been disconnected meanwhile. */
TREESCOPE_CHECKED treescope_result treescope_read_tree(treescope_client* client, const char* path,
                                                       treescope_visitor visitor, void* context,
                                                       bool* changed);

typedef enum treescope_change TREESCOPE_ANY_INT {
  TREESCOPE_BEGIN = 1,   /* everything follows anew: at first, on a new connection, after a gap */
  TREESCOPE_ADDED = 2,   /* a part is there; what was reported of it and below it before is void */
  TREESCOPE_VALUE = 3,   /* a value: at first the current one, then each change */
  TREESCOPE_REMOVED = 4, /* a part and everything below it has left the tree */
  TREESCOPE_COMPLETE = 5 /* everything has been reported once since the beginning */
} treescope_change;

/* One report of a watch. Valid in the callback only. */
typedef struct treescope_update {
  treescope_change kind;
  const char* path;     /* the part's path of ids, such as "#1/#3", with the index of an element */
  const uint16_t* ids;  /* the same ids, from the root down */
  size_t depth;         /* and their number */
  treescope_bytes name; /* if added */
  bool is_node;         /* if added */
  int index;            /* of a value: the element, or TREESCOPE_ALL */
  treescope_result result; /* of a value: TREESCOPE_SUCCESS; TREESCOPE_TOO_LARGE above 4096 bytes
                              (`treescope_get` of `path` reads it); or why it cannot be read */
  treescope_bytes text;    /* the value, with TREESCOPE_SUCCESS */
  double number;           /* the same as a number, as `treescope_get_double` has it; else a NaN */
  int64_t time_ns;         /* when the server changed it, or read it: since 1970-01-01 UTC */
  uint32_t changes;        /* how many changes it stands for; 0: it is the current value */
} treescope_update;
typedef void (*treescope_watcher)(void* context, const treescope_update* update);

/* Watches the value at `path`, or with TREESCOPE_SUBTREE everything at and below it: reports the
 * current values, then each change with its value; no last value is lost. `period` is the minimum
 * time between two reported changes of one part in milliseconds, or 0. The watch lasts until it is
 * stopped or the client disconnected; it outlasts the connection and the part. `watcher` is called
 * by `treescope_client_dispatch`, never in here. TREESCOPE_NOT_SUPPORTED by an older server. */
#define TREESCOPE_SUBTREE 1u
TREESCOPE_CHECKED treescope_result treescope_watch_start(treescope_client* client, const char* path,
                                                         unsigned flags, unsigned period,
                                                         treescope_watcher watcher, void* context,
                                                         treescope_watch** watch);

/* Ends a watch and closes its handle. Allowed in a callback. */
treescope_result treescope_watch_stop(treescope_watch* watch);

/* ---- Servers -------------------------------------------------------------------------------- */

typedef struct treescope_server treescope_server;
typedef struct treescope_part treescope_part;

/* Makes a server with an empty tree. It has no port before `treescope_publish`. */
TREESCOPE_CHECKED treescope_result treescope_server_new(treescope_server** server);

/* Ends the service immediately, and closes the server and its parts. */
treescope_result treescope_server_close(treescope_server* server);

/* Publishes the tree as port `name`; members of `group`, not (gid_t)-1, may connect too. Shells
 * list names that begin with "Model_" or end in ".Model". The program must then dispatch. */
TREESCOPE_CHECKED treescope_result treescope_publish(treescope_server* server, const char* name);
TREESCOPE_CHECKED treescope_result treescope_publish_to_group(treescope_server* server,
                                                              const char* name, gid_t group);

/* Ends the service after clients have received what is pending for them, and dispatches meanwhile,
 * for at most `milliseconds` (below 0: no limit), then TREESCOPE_TIMEOUT. The parts remain. */
treescope_result treescope_unpublish(treescope_server* server, int milliseconds);

/* As those of a client. A value that any thread sets is sent by `treescope_server_dispatch`. */
int treescope_server_descriptor(treescope_server* server);
treescope_result treescope_server_dispatch(treescope_server* server, int milliseconds);
treescope_result treescope_server_wake(treescope_server* server);

/* What a new part is. Name the members (`.id = 2`): what is left out is 0 and means the default. */
typedef struct treescope_part_options {
  uint16_t id;             /* 0 to 65,533, unique among siblings; the address on the wire */
  const char* name;        /* at most 65,535 bytes, as those of elements; NULL: "" */
  treescope_type type;     /* TREESCOPE_NODE or a type of value; there is no default */
  treescope_access access; /* TREESCOPE_READ_WRITE by default */
  const char* value;       /* the first value as text; NULL: 0, false or "" */
  size_t elements;         /* 1 to 65,534: an array; 0: a single value */
  const char* const* element_names; /* as many as `elements`; NULL: none */
  bool not_watchable;               /* clients may not watch it */
  const char* unit;                 /* this and what follows: what clients learn about it; NULL: */
  const char* minimum;              /* nothing. Limits and choices also apply to their stores */
  const char* maximum;
  const char* text;
  const char* const* choices;
  size_t choice_count;
} treescope_part_options;

/* Adds a part as the last child of the node `parent`; NULL: of the root. `part` may be NULL. */
TREESCOPE_CHECKED treescope_result treescope_add(treescope_server* server, treescope_part* parent,
                                                 const treescope_part_options* options,
                                                 treescope_part** part);

/* Takes a part and everything below it out of the tree and closes their handles. */
treescope_result treescope_remove(treescope_part* part);

/* Sets the value of a part or, with an index, of one element, from the server's side: access,
 * limits and store check do not apply. Watching clients are notified if it changes the value. */
treescope_result treescope_part_set(treescope_part* part, int index, const char* text);
treescope_result treescope_part_set_double(treescope_part* part, int index, double value);
treescope_result treescope_part_set_int64(treescope_part* part, int index, int64_t value);
treescope_result treescope_part_store(treescope_part* part, int index, const void* text,
                                      size_t size);

/* The present value, as the client's functions give it. */
TREESCOPE_CHECKED treescope_result treescope_part_get(treescope_part* part, int index, char** text,
                                                      size_t* size);
TREESCOPE_CHECKED treescope_result treescope_part_get_double(treescope_part* part, int index,
                                                             double* value);
TREESCOPE_CHECKED treescope_result treescope_part_get_int64(treescope_part* part, int index,
                                                            int64_t* value);

/* A store that a check is about. Valid in the check only. */
typedef struct treescope_store_request {
  treescope_part* part;
  int index;        /* the element, or TREESCOPE_ALL for a single value */
  const char* text; /* the new value; a zero byte follows its `size` bytes */
  size_t size;
  double number; /* the new value; 1 for true; not a number for a text */
} treescope_store_request;
typedef treescope_result (*treescope_store_check)(void* context,
                                                  const treescope_store_request* request);

/* Calls `check` before a client's store is applied, for an array once an element, in place of an
 * earlier check; NULL: no check. What it returns other than TREESCOPE_SUCCESS refuses the store and
 * is the client's result. Must return soon. */
treescope_result treescope_on_store(treescope_part* part, treescope_store_check check,
                                    void* context);

/* Gives the reason, up to 512 bytes of UTF-8 in one line, and returns TREESCOPE_VETOED. */
treescope_result treescope_refuse(const treescope_store_request* request, const char* reason);

/* A value that a getter gives. Valid in the getter only. */
typedef struct treescope_reply treescope_reply;
treescope_result treescope_reply_double(treescope_reply* reply, double value);
treescope_result treescope_reply_int64(treescope_reply* reply, int64_t value);
treescope_result treescope_reply_text(treescope_reply* reply, const void* text, size_t size);
typedef treescope_result (*treescope_getter)(void* context, treescope_part* part,
                                             treescope_reply* reply);

/* Lets clients read what `getter` gives, each time anew, instead of the value that the part holds;
 * NULL ends that. Single values only. The getter calls one of the functions above, or returns why
 * there is no value. It must return soon, and cannot read its own part. A client's store is then
 * applied by the store check, and `treescope_notify` says that there is another value. */
treescope_result treescope_on_get(treescope_part* part, treescope_getter getter, void* context);

/* Notifies the watching clients that a getter has another value. */
treescope_result treescope_notify(treescope_part* part);

/* Calls `handler` with true before a first client watches it, and with false after the last one. */
treescope_result treescope_on_watched(treescope_part* part,
                                      void (*handler)(void* context, bool watched), void* context);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
