#include "gateway/link/read_limit.h"

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

namespace modelgate {

/// A filter in front of the socket.
struct ReadLimit::Method {
  static int read(BIO* filter, char* bytes, int size) {
    auto& limit = *static_cast<ReadLimit*>(BIO_get_data(filter));
    BIO_clear_retry_flags(filter);
    if (limit.left_ == 0) {
      BIO_set_retry_read(filter);
      errno = EAGAIN;
      return -1;
    }
    const int length = BIO_read(BIO_next(filter), bytes, size);
    BIO_copy_next_retry(filter);
    if (length > 0) {
      limit.left_ -= std::min(limit.left_, static_cast<std::size_t>(length));
    }
    return length;
  }

  static long control(BIO* filter, int command, long number, void* pointer) {
    return BIO_ctrl(BIO_next(filter), command, number, pointer);
  }

  /// Made once, and never freed. Null if there is no memory.
  static const BIO_METHOD* make() {
    BIO_METHOD* const method = BIO_meth_new(BIO_TYPE_FILTER, "read limit");
    if (method != nullptr) {
      BIO_meth_set_read(method, read);
      BIO_meth_set_ctrl(method, control);
    }
    return method;
  }
};

void ReadLimit::attach(ssl_st* ssl) {
  static const BIO_METHOD* const method = Method::make();
  BIO* const filter = method == nullptr ? nullptr : BIO_new(method);
  if (filter == nullptr) {
    throw std::bad_alloc();
  }
  BIO_set_data(filter, this);
  BIO_set_init(filter, 1);
  BIO* const socket = SSL_get_rbio(ssl);
  // One reference for the filter; that of `ssl` ends when it gets another one to read from.
  BIO_up_ref(socket);
  BIO_push(filter, socket);
  SSL_set0_rbio(ssl, filter);
}

}  // namespace modelgate
