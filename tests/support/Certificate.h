#pragma once

#include <cstdlib>

#include "tests/support/TemporaryFolder.h"

namespace zelvo::test {

/// Makes NAME.pem and NAME.key for 127.0.0.1 with the openssl command.
inline void makeCertificate(const TemporaryFolder& folder, const std::string& name, int days = 2) {
    const auto key = folder / (name + ".key");
    const auto certificate = folder / (name + ".pem");
    // Only the second command takes a certificate's end in the past.
    const auto command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=zelvo "
        "-addext subjectAltName=IP:127.0.0.1 -keyout " +
        key + " -out " + certificate + ".new 2>/dev/null && openssl x509 -in " + certificate +
        ".new -signkey " + key + " -days " + std::to_string(days) + " -out " + certificate +
        " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
}

}  // namespace zelvo::test
