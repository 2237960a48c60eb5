#include "ConfCrypt.h"

#include <algorithm>

namespace {
constexpr int kConfKeyTextLength = 32;
constexpr int kAesKeyBytes = 16;
} // namespace

QString ConfCrypt::keyText()
{
    return QString::fromLatin1(QByteArray::fromHex(DORVIK_CONFIG_KEY_HEX));
}

QByteArray ConfCrypt::initialisationVector()
{
    return QByteArray::fromHex(DORVIK_CONFIG_IV_HEX);
}

std::optional<QByteArray> ConfCrypt::decodeData(const QByteArray &data)
{
    return aesopeartion(data, keyText(), Crypto::Op::Decrypt, kConfKeyTextLength);
}

std::optional<QByteArray> ConfCrypt::encodeData(const QByteArray &data)
{
    return aesopeartion(data, keyText(), Crypto::Op::Encrypt, kConfKeyTextLength);
}

std::optional<QByteArray> ConfCrypt::aesopeartion(const QByteArray &data, const QString &key, Crypto::Op op, int keyLen)
{
    const int length = std::max(keyLen, 0);
    QByteArray buffer(std::max(length, kAesKeyBytes) + 1, '\0');
    const QByteArray text = key.toUtf8();
    std::copy_n(text.constData(), std::min<qsizetype>(text.size(), length), buffer.data());
    return Crypto::aes128(data, buffer.left(kAesKeyBytes), initialisationVector(), op);
}
