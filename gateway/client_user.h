#pragma once

#include <string>

namespace modelgate {

/// The common name in the first certificate of the file `certFile`, which a broker may take as the
/// user name. Throws std::runtime_error, with a line for a person, if there is none.
[[nodiscard]] std::string userOfCertificate(const std::string& certFile);

}  // namespace modelgate
