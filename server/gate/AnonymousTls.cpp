#include "server/gate/AnonymousTls.h"

#include <openssl/ssl.h>

namespace zelvo::server {

void AnonymousTls::Free::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

AnonymousTls::AnonymousTls() : context_(SSL_CTX_new(TLS_server_method())) {
    auto* context = context_.get();
    // The security level forbids what has no certificate. gtk-vnc's library knows the first kind of
    // agreement only, OpenSSL's clients prefer the second.
    if (!context || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_max_proto_version(context, TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_cipher_list(context, "aNULL+AESGCM:aNULL+AES:!SSLv2:!EXP:@SECLEVEL=0") != 1) {
        context_.reset();
        return;
    }
    SSL_CTX_set_dh_auto(context, 1);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET |
                                     SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_RELEASE_BUFFERS);
}

}  // namespace zelvo::server
