#include "PINRule.h"

#include "PinTables.h"
#include "Utf8Buffer.h"
#include "Util/DVUtils.h"

#include <QDateTime>
#include <QVarLengthArray>

#include <cstring>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr qsizetype kKeyBlockSize = 32;
constexpr qsizetype kKeyBytesUsed = 16;
constexpr int kMixBlockSize = 64;

} // namespace

qint64 PINRule::timeQuantum(qint64 nowSecs, const qint64 *oldTime)
{
    qint64 now = nowSecs / 5;
    if (oldTime && *oldTime > now)
        now = *oldTime + 1;
    return now;
}

void PINRule::timeCode(qint64 quantum, char out[6])
{
    const quint32 t = static_cast<quint32>(quantum);
    // Bit transposition: byte j collects bits j, j+4, ..., j+28 of t, the first one ending up
    // as the most significant bit.
    quint32 d[4] = {0, 0, 0, 0};
    for (int k = 0; k < 32; ++k)
        d[k & 3] = ((d[k & 3] << 1) | ((t >> k) & 1u)) & 0xFFu;
    const quint32 e[6] = {
        d[0] >> 2,       ((d[0] & 3u) << 4) | (d[1] >> 4), ((d[1] & 15u) << 2) | (d[2] >> 6), d[2] & 63u, d[3] >> 2,
        (d[3] & 3u) << 4};
    // Skipping 64 keeps "@" out of the code: dial names are split at "@" later.
    for (int i = 0; i < 6; ++i)
        out[i] = static_cast<char>(e[i] + 32 < 64 ? e[i] + 32 : e[i] + 33);
}

void PINRule::pinBytes(const char *name, qsizetype nameLen, const char *key, qsizetype keyLen, qint64 quantum,
                       char out[8])
{
    timeCode(quantum, out);
    const quint32 q = static_cast<quint32>(quantum);
    QVarLengthArray<char, 192> input(4 + nameLen + keyLen);
    char *p = input.data();
    p[0] = static_cast<char>(q >> 24);
    p[1] = static_cast<char>(q >> 16);
    p[2] = static_cast<char>(q >> 8);
    p[3] = static_cast<char>(q);
    if (nameLen > 0)
        std::memcpy(p + 4, name, static_cast<size_t>(nameLen));
    if (keyLen > 0)
        std::memcpy(p + 4 + nameLen, key, static_cast<size_t>(keyLen));
    const QByteArray digest = DVUtils::md5(QByteArray::fromRawData(input.constData(), input.size()));
    const auto first = static_cast<unsigned char>(digest.at(0));
    out[6] = kHexDigits[first >> 4];
    out[7] = kHexDigits[first & 15];
}

void PINRule::flagBytes(const char *key, qsizetype keyLen, const char *name, qsizetype nameLen, const char *flag6,
                        char out[8])
{
    unsigned char keyBlock[kKeyBlockSize];
    const qsizetype n = qMin(keyLen, kKeyBytesUsed);
    if (n > 0)
        std::memcpy(keyBlock, key, static_cast<size_t>(n));
    for (qsizetype i = 0; n + i < kKeyBlockSize; ++i) {
        const auto entry = static_cast<unsigned char>(PinTables::keyPadding[i]);
        keyBlock[n + i] = static_cast<unsigned char>(PinTables::keyPadding[entry % PinTables::keyPaddingSize]);
    }

    // Name, time code and key interleave one byte each; a source that runs out hands its turns
    // to the time code, then to the key, and once the key is used up the position itself fills
    // the place. Only the name bytes at positions 0, 3, ..., 63 are used (at most 22).
    unsigned char mix[kMixBlockSize] = {};
    qsizetype ni = 0;
    int fi = 0;
    int ki = 0;
    for (int j = 0; j < kMixBlockSize; ++j) {
        const int r = j % 3;
        if (r == 0 && ni < nameLen)
            mix[j] = static_cast<unsigned char>(name[ni++]);
        else if (r == 1 && fi < 6)
            mix[j] = static_cast<unsigned char>(flag6[fi++]);
        else if (r == 2 && ki < kKeyBlockSize)
            mix[j] = keyBlock[ki++];
        else if (fi < 6)
            mix[j] = static_cast<unsigned char>(flag6[fi++]);
        else if (ki >= kKeyBlockSize)
            mix[j] = static_cast<unsigned char>(j);
        else
            mix[j] = keyBlock[ki++];
    }

    const QByteArray digest = DVUtils::md5(QByteArray::fromRawData(reinterpret_cast<const char *>(mix), sizeof mix));
    const auto *d = reinterpret_cast<const unsigned char *>(digest.constData());
    // Digest bytes are unsigned: every index below stays within 0..15.
    const unsigned c = ((d[d[6] & 15] & 3u) << 6) | (d[(d[13] >> 2) & 15] & 0x3Cu) | (d[d[11] >> 4] >> 6);
    std::memcpy(out, flag6, 6);
    out[6] = kHexDigits[(c >> 4) & 15];
    out[7] = kHexDigits[c & 15];
}

QByteArray PINRule::geneFlagWithKey(const std::optional<QString> &key, const char *name, const char *flag6)
{
    // Key and name take part as C strings: an embedded NUL ends them, as it ends the strings
    // the PIN is defined on. A missing key leaves a key block of padding only.
    const Utf8Buffer k(key ? QStringView(*key) : QStringView());
    QByteArray out(8, Qt::Uninitialized);
    flagBytes(k.data(), k.cLength(), name, name ? static_cast<qsizetype>(std::strlen(name)) : 0, flag6, out.data());
    return out;
}

bool PINRule::pinInto(const std::optional<QString> &key, QStringView username, const qint64 *oldTime, qint64 nowSecs,
                      char out[8])
{
    if (!key || key->isEmpty())
        return false;
    // The digest covers the full UTF-8 bytes of name and key.
    const Utf8Buffer name(username);
    const Utf8Buffer k(*key);
    pinBytes(name.data(), name.size(), k.data(), k.size(), timeQuantum(nowSecs, oldTime), out);
    return true;
}

bool PINRule::pinV1Into(const std::optional<QString> &key, QStringView username, qint64 *oldTime, qint64 nowSecs,
                        char out[8])
{
    if (!key || key->isEmpty())
        return false;
    const qint64 quantum = timeQuantum(nowSecs, oldTime);
    if (oldTime)
        *oldTime = quantum;
    char code[6];
    timeCode(quantum, code);
    const Utf8Buffer name(username);
    const Utf8Buffer k(*key);
    // The flag's bytes are already the PIN: turning them into hex and back (lower-case digits
    // only) is a round trip, so it is left out.
    flagBytes(k.data(), k.cLength(), name.data(), name.cLength(), code, out);
    return true;
}

std::optional<QString> PINRule::createPinWithKey(const std::optional<QString> &key, const qint64 *oldTime,
                                                 const std::optional<QString> &username)
{
    return createPinWithKey(key, oldTime, username, QDateTime::currentSecsSinceEpoch());
}

std::optional<QString> PINRule::createPinWithKey(const std::optional<QString> &key, const qint64 *oldTime,
                                                 const std::optional<QString> &username, qint64 nowSecs)
{
    char pin[8];
    if (!pinInto(key, username ? QStringView(*username) : QStringView(), oldTime, nowSecs, pin))
        return username;
    return QString::fromLatin1(pin, 8);
}

std::optional<QString> PINRule::createPinV1WithKey(const std::optional<QString> &key, qint64 *oldTime,
                                                   const std::optional<QString> &username)
{
    return createPinV1WithKey(key, oldTime, username, QDateTime::currentSecsSinceEpoch());
}

std::optional<QString> PINRule::createPinV1WithKey(const std::optional<QString> &key, qint64 *oldTime,
                                                   const std::optional<QString> &username, qint64 nowSecs)
{
    char pin[8];
    if (!pinV1Into(key, username ? QStringView(*username) : QStringView(), oldTime, nowSecs, pin))
        return username;
    return QString::fromLatin1(pin, 8);
}
