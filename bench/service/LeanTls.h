#pragma once

struct ssl_ctx_st;

namespace zelvo::bench {

/// What a measuring client has of TLS: as little as it can, since it works on the processors that
/// are measured. One curve, one cipher, and a server's certificate is read, its signature of the
/// handshake verified, but nobody is asked who issued it. Lives until the process ends.
ssl_ctx_st* makeLeanTls();

}  // namespace zelvo::bench
