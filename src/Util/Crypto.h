#pragma once

#include <QByteArray>

#include <optional>

// Thin wrappers over OpenSSL libcrypto. Higher layers go through DVUtils (or their own key
// rules); these take the exact key bytes.
namespace Crypto {

enum class Op { Encrypt, Decrypt };

// AES-128 with PKCS#7 padding. An empty iv selects ECB, a 16-byte iv selects CBC.
// Decryption is strict: empty input, a length that is not a multiple of 16 or bad padding
// gives nullopt.
std::optional<QByteArray> aes128(const QByteArray &data, const QByteArray &key16, const QByteArray &iv, Op op);

QByteArray md5(const QByteArray &data);
QByteArray sha1(const QByteArray &data);
QByteArray hmacSha1(const QByteArray &message, const QByteArray &key);

} // namespace Crypto
