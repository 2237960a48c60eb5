#include "Crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>

namespace Crypto {

std::optional<QByteArray> aes128(const QByteArray &data, const QByteArray &key16, const QByteArray &iv, Op op)
{
    if (key16.size() != 16 || !(iv.isEmpty() || iv.size() == 16))
        return std::nullopt;
    if (op == Op::Decrypt && (data.isEmpty() || data.size() % 16 != 0))
        return std::nullopt;

    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    if (!ctx)
        return std::nullopt;
    const EVP_CIPHER *cipher = iv.isEmpty() ? EVP_aes_128_ecb() : EVP_aes_128_cbc();
    const auto *k = reinterpret_cast<const unsigned char *>(key16.constData());
    const auto *v = iv.isEmpty() ? nullptr : reinterpret_cast<const unsigned char *>(iv.constData());
    if (EVP_CipherInit_ex(ctx.get(), cipher, nullptr, k, v, op == Op::Encrypt ? 1 : 0) != 1)
        return std::nullopt;

    QByteArray out(data.size() + 16, Qt::Uninitialized);
    int written = 0;
    int last = 0;
    auto *o = reinterpret_cast<unsigned char *>(out.data());
    if (EVP_CipherUpdate(ctx.get(), o, &written, reinterpret_cast<const unsigned char *>(data.constData()),
                         static_cast<int>(data.size()))
        != 1)
        return std::nullopt;
    // OpenSSL checks that every padding byte carries the same value between 1 and 16.
    if (EVP_CipherFinal_ex(ctx.get(), o + written, &last) != 1)
        return std::nullopt;
    out.truncate(written + last);
    return out;
}

namespace {
QByteArray digest(const EVP_MD *md, const QByteArray &data)
{
    unsigned char buf[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_Digest(data.constData(), static_cast<size_t>(data.size()), buf, &len, md, nullptr);
    return QByteArray(reinterpret_cast<const char *>(buf), static_cast<int>(len));
}

// MD5 sits on the dial path (several digests per dial name): the algorithm is fetched once
// and each thread reuses one context, which halves the cost of a short digest compared with
// an implicit fetch and a fresh context per call.
QByteArray fastMd5(const QByteArray &data)
{
    static EVP_MD *const md = EVP_MD_fetch(nullptr, "MD5", nullptr);
    thread_local const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    unsigned char buf[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (!md || !ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1
        || EVP_DigestUpdate(ctx.get(), data.constData(), static_cast<size_t>(data.size())) != 1
        || EVP_DigestFinal_ex(ctx.get(), buf, &len) != 1)
        return digest(EVP_md5(), data);
    return QByteArray(reinterpret_cast<const char *>(buf), static_cast<int>(len));
}
} // namespace

QByteArray md5(const QByteArray &data)
{
    return fastMd5(data);
}

QByteArray sha1(const QByteArray &data)
{
    return digest(EVP_sha1(), data);
}

QByteArray hmacSha1(const QByteArray &message, const QByteArray &key)
{
    unsigned char buf[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    HMAC(EVP_sha1(), key.constData(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char *>(message.constData()), static_cast<size_t>(message.size()), buf, &len);
    return QByteArray(reinterpret_cast<const char *>(buf), static_cast<int>(len));
}

} // namespace Crypto
