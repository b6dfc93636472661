#include "serving/TlsContext.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>

namespace zelvo::serving {
namespace {

/// The first error in the queue is the cause, the later ones only tell who passed it on.
std::string tlsTrouble() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_peek_error(), text.data(), text.size());
    ERR_clear_error();
    return text.data();
}

}  // namespace

std::shared_ptr<const TlsContext> TlsContext::read(const std::string& certificateFile,
                                                   const std::string& keyFile, std::string& error) {
    std::shared_ptr<TlsContext> made(new TlsContext);
    return made->set(certificateFile, keyFile, error) ? made : nullptr;
}

bool TlsContext::set(const std::string& certificateFile, const std::string& keyFile,
                     std::string& error) {
    context_.reset(SSL_CTX_new(TLS_server_method()));
    auto* context = context_.get();
    if (!context || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1)
        error = tlsTrouble();
    else if (SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()) != 1)
        error = certificateFile + ": " + tlsTrouble();
    else if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
             SSL_CTX_check_private_key(context) != 1)
        error = keyFile + ": " + tlsTrouble();
    if (!error.empty())
        return false;
    // An idle connection keeps no buffers, a session no memory, and one ticket is enough.
    // The chain is the file's; looking for a better one would be done in each handshake.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context, 1);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    // Handshakes are what costs: first what is cheapest of what is strong.
    SSL_CTX_set_ciphersuites(context,
                             "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:"
                             "TLS_CHACHA20_POLY1305_SHA256");
    SSL_CTX_set1_groups_list(context, "X25519:P-256:P-384");
    return true;
}

void TlsContext::Releaser::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

}  // namespace zelvo::serving
