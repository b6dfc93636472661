#include "service/TlsContext.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>

namespace zelvo::service {
namespace {

/// The first error in the queue is the cause, the later ones only tell who passed it on.
std::string trouble() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_peek_error(), text.data(), text.size());
    ERR_clear_error();
    return text.data();
}

}  // namespace

TlsContext::TlsContext(const std::string& certificateFile, const std::string& keyFile,
                       std::string& error)
    : context_(SSL_CTX_new(TLS_server_method())) {
    auto* context = context_.get();
    if (!context)
        error = trouble();
    else if (SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1)
        error = trouble();
    else if (SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()) != 1)
        error = certificateFile + ": " + trouble();
    else if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
             SSL_CTX_check_private_key(context) != 1)
        error = keyFile + ": " + trouble();
    else
        return;
    context_.reset();
}

void TlsContext::Releaser::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

}  // namespace zelvo::service
