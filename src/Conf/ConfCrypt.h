#pragma once

#include "Util/Crypto.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The cipher of the shipped configuration file: AES-128 in CBC mode with PKCS#7 padding,
// keyed with the deployment's key text and initialisation vector, which are compiled in.
class ConfCrypt
{
public:
    // Ciphertext of the shipped file in, plaintext out; nullopt when it does not decrypt.
    static std::optional<QByteArray> decodeData(const QByteArray &data);
    // The reverse, for the deployer's tool that produces the file.
    static std::optional<QByteArray> encodeData(const QByteArray &data);

    // The routine behind both. The first keyLen characters of the key text are copied into a
    // zero-filled buffer, but only its first 16 bytes key the cipher: a key text that differs
    // only after its 16th character gives the same result. A text shorter than 16 bytes is
    // padded with zero bytes. The IV is the deployment's.
    static std::optional<QByteArray> aesopeartion(const QByteArray &data, const QString &key, Crypto::Op op,
                                                  int keyLen);

    // The compiled-in key text (32 characters) and initialisation vector (16 bytes).
    static QString keyText();
    static QByteArray initialisationVector();
};
