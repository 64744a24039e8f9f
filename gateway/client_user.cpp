#include "gateway/client_user.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>

namespace modelgate {

namespace {

template <auto Free>
struct Freed {
  template <typename Type>
  void operator()(Type* object) const {
    Free(object);
  }
};

}  // namespace

std::string userOfCertificate(const std::string& certFile) {
  const std::unique_ptr<BIO, Freed<BIO_free>> file(BIO_new_file(certFile.c_str(), "r"));
  const std::unique_ptr<X509, Freed<X509_free>> certificate(
      file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
  ERR_clear_error();
  if (!certificate) {
    throw std::runtime_error(certFile + ": no certificate that can be read");
  }
  const X509_NAME* const subject = X509_get_subject_name(certificate.get());
  const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  const X509_NAME_ENTRY* const entry = X509_NAME_get_entry(subject, index);
  unsigned char* text = nullptr;
  const int size =
      entry != nullptr ? ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(entry)) : -1;
  if (size < 0) {
    throw std::runtime_error(certFile + ": no common name");
  }
  std::string name(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
  OPENSSL_free(text);
  return name;
}

}  // namespace modelgate
