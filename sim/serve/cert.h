// The simulated appliance's certificate authority and the server
// certificate it issues for 127.0.0.1 and localhost.
#pragma once
#include <string>

namespace vexosim::serve {

// Makes dir/ca.pem, dir/ca.key, dir/server.pem and dir/server.key unless
// they are all there already (a restart keeps its CA). Throws on failure.
void ensureCertificates(const std::string &dir);

} // namespace vexosim::serve
