#include "bench/service/LeanTls.h"

#include <openssl/core_dispatch.h>
#include <openssl/provider.h>
#include <openssl/ssl.h>

#include <string_view>
#include <vector>

namespace zelvo::bench {
namespace {

OSSL_PROVIDER* whole = nullptr;

bool isOfUse(int operation, const OSSL_ALGORITHM& algorithm) {
    const std::string_view names(algorithm.algorithm_names);
    const std::string_view properties(algorithm.property_definition);
    if (operation == OSSL_OP_DECODER)
        return names == "EC" && properties.find("input=der") != properties.npos &&
               properties.find("SubjectPublicKeyInfo") != properties.npos;
    return names.starts_with("EC:") || names.starts_with("X25519:") || names.starts_with("HMAC");
}

std::vector<OSSL_ALGORITHM> thoseOfUse(int operation, const OSSL_ALGORITHM* all) {
    std::vector<OSSL_ALGORITHM> some;
    for (; all->algorithm_names; ++all)
        if (isOfUse(operation, *all))
            some.push_back(*all);
    some.push_back({});
    return some;
}

/// For each certificate the library goes through all kinds of keys and all their encodings, which
/// takes longer than the signatures do. There are only those of servers here and of tickets.
const OSSL_ALGORITHM* findAlgorithms(void*, int operation, int* mayNotCache) {
    const auto* all = OSSL_PROVIDER_query_operation(whole, operation, mayNotCache);
    if (!all || (operation != OSSL_OP_DECODER && operation != OSSL_OP_KEYMGMT))
        return all;
    // Several threads may be the first.
    if (operation == OSSL_OP_DECODER) {
        static const auto decoders = thoseOfUse(operation, all);
        return decoders.data();
    }
    static const auto keys = thoseOfUse(operation, all);
    return keys.data();
}

int findCapabilities(void*, const char* capability, OSSL_CALLBACK* each, void* it) {
    return OSSL_PROVIDER_get_capabilities(whole, capability, each, it);
}

template <typename Function>
auto entry(int number, Function* function) {
    return OSSL_DISPATCH{number, reinterpret_cast<void (*)()>(function)};
}

int beginProvider(const OSSL_CORE_HANDLE*, const OSSL_DISPATCH*, const OSSL_DISPATCH** functions,
                  void** context) {
    static const OSSL_DISPATCH ours[] = {
        entry(OSSL_FUNC_PROVIDER_QUERY_OPERATION, &findAlgorithms),
        entry(OSSL_FUNC_PROVIDER_GET_CAPABILITIES, &findCapabilities),
        {0, nullptr}};
    whole = OSSL_PROVIDER_load(nullptr, "default");
    *context = whole ? OSSL_PROVIDER_get0_provider_ctx(whole) : nullptr;
    *functions = ours;
    return whole != nullptr;
}

}  // namespace

ssl_ctx_st* makeLeanTls() {
    auto* library = OSSL_LIB_CTX_new();
    OSSL_PROVIDER_add_builtin(library, "lean", beginProvider);
    OSSL_PROVIDER_load(library, "lean");
    auto* tls = SSL_CTX_new_ex(library, nullptr, TLS_client_method());
    SSL_CTX_set_cert_verify_callback(
        tls, [](X509_STORE_CTX*, void*) { return 1; }, nullptr);
    SSL_CTX_set_min_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set1_groups_list(tls, "X25519");
    SSL_CTX_set_ciphersuites(tls, "TLS_AES_128_GCM_SHA256");
    SSL_CTX_set1_sigalgs_list(tls, "ECDSA+SHA256");
    SSL_CTX_set_mode(tls, SSL_MODE_RELEASE_BUFFERS);
    return tls;
}

}  // namespace zelvo::bench
