// The secrets of TLS connections in a file in the NSS key log format, from which Wireshark decrypts recorded traffic.
// Whoever reads the file can do the same, and learns the PMKs in that traffic.
#ifndef TUNNEL_SECRET_LOG_H
#define TUNNEL_SECRET_LOG_H

#include <string>

typedef struct ssl_ctx_st SSL_CTX;

namespace kx {

// From now on the secrets of the connections of `tls` are appended to `file`, which is made for its owner alone. Throws
// std::runtime_error when it cannot be opened, is no regular file, or belongs or is open to others.
void log_secrets(SSL_CTX *tls, const std::string &file);

}  // namespace kx

#endif
