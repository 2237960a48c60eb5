#include "PinCodec.h"

#include "PinTables.h"

#include <cstring>

namespace {

constexpr std::size_t kNameBufferSize = 64;
constexpr std::size_t kWorkBufferSize = 128;
constexpr std::size_t kMacDigits = 12;

enum class Family { A, B };

template<Family F> void encodeFamily(const unsigned char *in, std::size_t inLen, char *out, std::size_t outCap)
{
    if (!out || outCap == 0)
        return;
    if (!in || inLen == 0) {
        out[0] = '\0';
        return;
    }
    const char *table = F == Family::A ? PinTables::alphabetA : PinTables::alphabetB;
    std::size_t pos = 0;
    std::size_t remaining = inLen;
    // pos is a multiple of 3 and every round stops once it reaches one of the last three
    // places, so each write (the final NUL included) stays below outCap.
    for (;;) {
        const unsigned b0 = in[0];
        const unsigned b1 = remaining == 1 ? 0u : in[1];
        out[pos] = table[b0 >> 3];
        if (pos == outCap - 1)
            return;
        unsigned index1;
        if (F == Family::A) {
            index1 = ((b0 & 7u) << 2) | (b1 >> 6);
        } else {
            // The second byte is shifted as a signed byte and taken back as an unsigned one, so
            // bytes of 0x80 and above add 254 or 255 here. The servers expect exactly this.
            unsigned s = 0;
            if (remaining != 1)
                s = static_cast<unsigned char>(static_cast<signed char>(b1) >> 6);
            index1 = (b0 * 4u + s) & 31u;
        }
        out[pos + 1] = table[index1];
        if (pos == outCap - 2)
            return;
        out[pos + 2] = remaining == 1 ? '=' : table[b1 & 63u];
        if (pos == outCap - 3)
            return;
        remaining = remaining == 1 ? 0 : remaining - 2;
        pos += 3;
        in += 2;
        if (remaining == 0)
            break;
    }
    out[pos] = '\0';
}

} // namespace

int toUsername(char *dest, std::size_t destSize, char *src)
{
    if (!src)
        return 0;
    if (char *at = std::strchr(src, '@'))
        *at = '\0';
    const std::size_t len = std::strlen(src);
    // Our own bound: a user part that would fill the whole buffer is refused rather than
    // written past its end; genpin then reports it like any other unusable name.
    if (!dest || len >= destSize)
        return 0;
    std::memcpy(dest, src, len);
    return static_cast<int>(len);
}

int toTargetMACADDR(const char *mac, char *dest)
{
    if (!mac || !dest || mac[0] == '\0')
        return -1;
    std::size_t count = 0;
    for (const char *p = mac; *p; ++p) {
        const char c = *p;
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))
            dest[count++] = c;
        else if (c >= 'A' && c <= 'F')
            dest[count++] = static_cast<char>(c - 'A' + 'a');
        // The twelfth digit must end the text: trailing separators or blanks are refused too.
        if (count == kMacDigits && p[1] != '\0')
            return -1;
    }
    return count == kMacDigits ? 0 : -1;
}

std::uint32_t GetSumWithChar(const unsigned char *buf, std::size_t len)
{
    std::uint32_t sum = 0;
    std::size_t i = 0;
    // The first word is always added, whatever the length (callers pass at least two bytes).
    do {
        sum += static_cast<std::uint32_t>(buf[i]) | (static_cast<std::uint32_t>(buf[i + 1]) << 8);
        i += 2;
    } while (i + 1 < len);
    if (i + 1 == len)
        sum += buf[i];
    while (sum >> 16)
        sum = (sum & 0xFFFFu) + (sum >> 16);
    return ~sum;
}

void base_encode(const unsigned char *in, std::size_t inLen, char *out, std::size_t outCap)
{
    encodeFamily<Family::A>(in, inLen, out, outCap);
}

void customBase64Encode(const unsigned char *in, std::size_t inLen, char *out, std::size_t outCap)
{
    encodeFamily<Family::B>(in, inLen, out, outCap);
}

int genpin(char *out, char *name, const char *key, const char *mac, std::uint64_t t)
{
    if (!out || !name)
        return GenPinBadName;
    char user[kNameBufferSize] = {};
    const int copied = toUsername(user, sizeof user, name);
    if (copied <= 0)
        return GenPinBadName;
    const std::size_t nameLen = static_cast<std::size_t>(copied);
    if (!key || key[0] == '\0')
        return GenPinBadKey;
    char macDigits[kMacDigits + 1] = {};
    if (!mac || toTargetMACADDR(mac, macDigits) != 0 || macDigits[0] == '\0')
        return GenPinBadMac;
    const std::size_t keyLen = std::strlen(key);
    const std::size_t sumLen = nameLen + keyLen + 8;
    if (sumLen > kWorkBufferSize)
        return GenPinBadName;

    // Seconds divided by three: this variant's own time unit.
    const std::uint32_t q = static_cast<std::uint32_t>(t / 3);
    const unsigned char Q[4] = {static_cast<unsigned char>(q >> 24), static_cast<unsigned char>(q >> 16),
                                static_cast<unsigned char>(q >> 8), static_cast<unsigned char>(q)};

    unsigned char work[kWorkBufferSize] = {};
    std::memcpy(work, Q, 4);
    std::memcpy(work + 4, key, keyLen);
    std::memcpy(work + 4 + keyLen, user, nameLen);
    // The sum covers four more bytes than were written; they are still zero.
    const std::uint32_t s1 = GetSumWithChar(work, sumLen) & 0xFFFFu;

    work[0] = static_cast<unsigned char>(s1 & 0xFF);
    work[1] = static_cast<unsigned char>(s1 >> 8);
    std::memcpy(work + 2, macDigits, kMacDigits);
    const std::uint32_t s2 = GetSumWithChar(work, 2 + kMacDigits) & 0xFFFFu;

    const unsigned char record[8] = {
        Q[0], Q[1], static_cast<unsigned char>(s1 & 0xFF), static_cast<unsigned char>(s1 >> 8),
        Q[2], Q[3], static_cast<unsigned char>(s2 & 0xFF), static_cast<unsigned char>(s2 >> 8)};
    base_encode(record, sizeof record, out, 12);
    return GenPinOk;
}
