#pragma once

#include <cstdlib>

#include "tests/support/TemporaryFolder.h"

namespace zelvo::test {

/// Makes NAME.pem and NAME.key for 127.0.0.1 with the openssl command.
inline void makeCertificate(const TemporaryFolder& folder, const std::string& name) {
    const auto command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
        "-subj /CN=zelvo -addext subjectAltName=IP:127.0.0.1 -keyout " +
        folder / (name + ".key") + " -out " + folder / (name + ".pem") + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
}

}  // namespace zelvo::test
