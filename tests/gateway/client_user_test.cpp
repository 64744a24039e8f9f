#include "gateway/client_user.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/gateway/link/certificates.h"
#include "tests/support/scratch_directory.h"

namespace {

TEST(GatewayClientUser, IsTheCommonNameOfTheCertificate) {
  const gateway_test::Certificates certificates;
  certificates.makeClient("anna b");
  EXPECT_EQ(modelgate::userOfCertificate(certificates.certificate("anna b")), "anna b");
  EXPECT_THROW(static_cast<void>(modelgate::userOfCertificate(certificates.key("anna b"))),
               std::runtime_error);
  EXPECT_THROW(static_cast<void>(modelgate::userOfCertificate("/no/such/file")),
               std::runtime_error);
}

}  // namespace
