// The byte-level pieces of the MAC-bound PIN and of the "timepinV3" encoder. Expected values
// were worked out by hand from the algorithm (checksum, MAC digits, encoder writes) and by an
// independent implementation for the 12-character PINs.

#include "AccountRule/PinCodec.h"
#include "AccountRule/PinTables.h"

#include <QByteArray>

#include "QtPrinters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

namespace {

QByteArray fromHex(const char *hex)
{
    return QByteArray::fromHex(QByteArray(hex));
}

TEST(PinTables, SizesAndAlphabetsAreTheServersOwn)
{
    EXPECT_EQ(std::strlen(PinTables::keyPadding), 62u);
    EXPECT_EQ(std::strlen(PinTables::alphabetA), 64u);
    EXPECT_EQ(std::strlen(PinTables::alphabetB), 64u);
    EXPECT_EQ(PinTables::alphabetA[62], ':');
    EXPECT_EQ(PinTables::alphabetA[63], '_');
    EXPECT_EQ(PinTables::alphabetB[62], '+');
    EXPECT_EQ(PinTables::alphabetB[63], '-');
    EXPECT_EQ(std::string(PinTables::keyPadding, 4), "fLnQ");
    EXPECT_EQ(std::string(PinTables::alphabetA, 4), "MQpY");
    EXPECT_EQ(std::string(PinTables::alphabetB, 4), "MBPS");
}

TEST(GetSumWithChar, LittleEndianInternetChecksum)
{
    struct Case
    {
        const char *bytes;
        size_t len;
        quint16 sum;
    };
    const Case cases[] = {
        {"0000000000000000000000000000", 14, 0xFFFF}, // zero bytes sum to all ones
        {"0001f203f4f5f6f7", 8, 0x0D22},              // the classic example, words read little-endian
        {"0001f203f4f5f6f7", 7, 0x0423},              // odd length: the last byte is added alone
        {"123456", 3, 0xCB97},
        {"123456", 1, 0xCBED},                                    // the first word is always added ...
        {"123456", 0, 0xCBED},                                    // ... even for lengths 0 and 1
        {"ffff0100", 4, 0xFFFE},                                  // carry folded back in
        {"ffffffffffffffffffffffffffffffffffffffff", 20, 0x0000}, // fold of many carries
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.bytes) + " len " + std::to_string(c.len));
        const QByteArray buf = fromHex(c.bytes);
        const auto sum = GetSumWithChar(reinterpret_cast<const unsigned char *>(buf.constData()), c.len);
        EXPECT_EQ(sum & 0xFFFFu, c.sum);
    }
}

TEST(ToTargetMACADDR, TwelveHexDigitsAndTheLastMustEndTheText)
{
    struct Case
    {
        const char *mac;
        int rc;
        const char *digits;
    };
    const Case cases[] = {
        {"AA:BB:CC:DD:EE:FF", 0, "aabbccddeeff"},
        {"AA-BB-CC-DD-EE-FF", 0, "aabbccddeeff"},
        {"aabbccddeeff", 0, "aabbccddeeff"},
        {"  aa:bb:cc:dd:ee:ff", 0, "aabbccddeeff"},  // leading separators are skipped
        {"gg:aa:bb:cc:dd:ee:ff", 0, "aabbccddeeff"}, // so are non-hex letters
        {"00:1A:2b:3C:4d:5E", 0, "001a2b3c4d5e"},
        {"aabbccddeeff0", -1, nullptr},            // 13 digits
        {"aabbccddeef", -1, nullptr},              // 11 digits
        {"AA:BB:CC:DD:EE:FF ", -1, nullptr},       // a blank after the twelfth digit
        {"aa:bb:cc:dd:ee:ff:", -1, nullptr},       // a separator after it
        {"AABBCCDDEEFF\xe2\x80\x8b", -1, nullptr}, // even invisible trailing bytes
        {"", -1, nullptr},
        {"\xc3\xa4\xc3\xa4", -1, nullptr}, // high bytes are never digits
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mac);
        char dest[13] = {};
        EXPECT_EQ(toTargetMACADDR(c.mac, dest), c.rc);
        if (c.digits) {
            EXPECT_STREQ(dest, c.digits);
        }
        EXPECT_EQ(dest[12], '\0');
    }
    char dest[13] = {};
    EXPECT_EQ(toTargetMACADDR(nullptr, dest), -1);
    EXPECT_EQ(toTargetMACADDR("aabbccddeeff", nullptr), -1);
}

TEST(ToUsername, CutsAtFirstAtInPlaceAndRespectsTheDestination)
{
    struct Case
    {
        const char *src;
        size_t destSize;
        int copied;
        const char *dest;
    };
    const std::string sixtyThree(63, 'u');
    const std::string sixtyFour(64, 'u');
    const Case cases[] = {
        {"alice", 64, 5, "alice"},
        {"alice@isp", 64, 5, "alice"},
        {"alice@a@b", 64, 5, "alice"},
        {"@isp", 64, 0, ""},
        {"", 64, 0, ""},
        {sixtyThree.c_str(), 64, 63, sixtyThree.c_str()},
        {sixtyFour.c_str(), 64, 0, ""}, // would leave no room for the terminator
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.src);
        QByteArray src(c.src);
        char dest[65] = {};
        EXPECT_EQ(toUsername(dest, c.destSize, src.data()), c.copied);
        EXPECT_STREQ(dest, c.dest);
        // The source itself now ends where the user part ends.
        const qsizetype at = QByteArray(c.src).indexOf('@');
        EXPECT_EQ(std::strlen(src.constData()), size_t(at < 0 ? src.size() : at));
    }
    char dest[8] = {};
    EXPECT_EQ(toUsername(dest, sizeof dest, nullptr), 0);
}

// Every byte the encoders write is checked against a sentinel-filled buffer: what must stay
// untouched (no terminator when the output is full) matters as much as what is written.
TEST(Encoders, WritesAndCapacityStopRules)
{
    struct Case
    {
        const char *input; // hex
        size_t len;
        size_t cap;
        const char *a; // 16 bytes after base_encode, hex; 0xaa = untouched
        const char *b; // after customBase64Encode
    };
    const Case cases[] = {
        {"616263", 3, 12, "66524c66663d00aaaaaaaaaaaaaaaaaa", "47343947473d00aaaaaaaaaaaaaaaaaa"},
        {"0102030405060708", 8, 12, "4d6b704d666b4d55564d7648aaaaaaaa", "4d41504d47414d31654d5255aaaaaaaa"},
        {"61626364", 4, 6, "66524c663662aaaaaaaaaaaaaaaaaaaa", "473439475964aaaaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 7, "66524c66366200aaaaaaaaaaaaaaaaaa", "47343947596400aaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 1, "66aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "47aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 2, "6652aaaaaaaaaaaaaaaaaaaaaaaaaaaa", "4734aaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 3, "66524caaaaaaaaaaaaaaaaaaaaaaaaaa", "473439aaaaaaaaaaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 4, "66524c66aaaaaaaaaaaaaaaaaaaaaaaa", "47343947aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"61626364", 4, 5, "66524c6636aaaaaaaaaaaaaaaaaaaaaa", "4734394759aaaaaaaaaaaaaaaaaaaaaa"},
        {"61", 1, 3, "666b3daaaaaaaaaaaaaaaaaaaaaaaaaa", "47413daaaaaaaaaaaaaaaaaaaaaaaaaa"},
        {"61", 1, 4, "666b3d00aaaaaaaaaaaaaaaaaaaaaaaa", "47413d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"6162", 0, 5, "00aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "00aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}, // empty input
        {"6162", 2, 0, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}, // no room at all
        // Second bytes of 0x80 and above: the signed shift of the second encoder differs.
        {"4180", 2, 4, "48564d00aaaaaaaaaaaaaaaaaaaaaaaa", "55504d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"41c0", 2, 4, "486f4d00aaaaaaaaaaaaaaaaaaaaaaaa", "55534d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"417f", 2, 4, "48525f00aaaaaaaaaaaaaaaaaaaaaaaa", "55342d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"ffff", 2, 4, "7a7a5f00aaaaaaaaaaaaaaaaaaaaaaaa", "5a4a2d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"07bf", 2, 4, "4d615f00aaaaaaaaaaaaaaaaaaaaaaaa", "4d6a2d00aaaaaaaaaaaaaaaaaaaaaaaa"},
        {"80", 1, 4, "654d3d00aaaaaaaaaaaaaaaaaaaaaaaa", "734d3d00aaaaaaaaaaaaaaaaaaaaaaaa"}, // lone high byte
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.input) + " len " + std::to_string(c.len) + " cap " + std::to_string(c.cap));
        const QByteArray in = fromHex(c.input);
        const auto *bytes = reinterpret_cast<const unsigned char *>(in.constData());
        char out[16];
        std::memset(out, 0xaa, sizeof out);
        base_encode(bytes, c.len, out, c.cap);
        EXPECT_EQ(QByteArray(out, 16).toHex(), QByteArray(c.a));
        std::memset(out, 0xaa, sizeof out);
        customBase64Encode(bytes, c.len, out, c.cap);
        EXPECT_EQ(QByteArray(out, 16).toHex(), QByteArray(c.b));
    }
}

TEST(Encoders, FirstTwoCharactersUseOnlyTheLowerHalfOfTheTable)
{
    for (int b0 = 0; b0 < 256; ++b0) {
        for (int b1 = 0; b1 < 256; b1 += 5) {
            const unsigned char in[2] = {static_cast<unsigned char>(b0), static_cast<unsigned char>(b1)};
            char a[4] = {};
            char b[4] = {};
            base_encode(in, 2, a, 4);
            customBase64Encode(in, 2, b, 4);
            for (int i = 0; i < 2; ++i) {
                EXPECT_LT(std::strchr(PinTables::alphabetA, a[i]) - PinTables::alphabetA, 32);
                EXPECT_LT(std::strchr(PinTables::alphabetB, b[i]) - PinTables::alphabetB, 32);
            }
            if (b1 < 0x80) {
                EXPECT_EQ(std::strchr(PinTables::alphabetA, a[1]) - PinTables::alphabetA,
                          std::strchr(PinTables::alphabetB, b[1]) - PinTables::alphabetB);
            }
        }
    }
}

TEST(Genpin, TwelveCharactersFromTimeKeyNameAndMac)
{
    struct Case
    {
        std::string name, key, mac;
        quint64 t;
        const char *pin;
    };
    const Case cases[] = {
        {"alice", "secret", "AA:BB:CC:DD:EE:FF", 1700000000, "koV7iBUgjDeG"},
        {"alice@isp", "secret", "aabbccddeeff", 1700000000, "koV7iBUgjDeG"}, // domain is not part of it
        {"alice", "secret", "aabbccddeeff", 1700000002, "koV7iyUglDeh"},     // seconds / 3: next unit
        {"alice", "secret", "aabbccddeeff", 1700000003, "koV7iyUglDeh"},     // same unit
        {"\xe5\xbc\xa0\xe4\xb8\x89", "\xe5\xaf\x86\xe9\x92\xa5", "00-11-22-33-44-55", 1700000000, "koVzHbUgjKgj"},
        {"alice", "secret", "aabbccddeeff", ~quint64(0), "Tttwk8Ttt5wW"}, // unsigned division
        {"a", "k", "aabbccddeeff", 0, "MMM44aMMMpeT"},
        {std::string(60, 'u'), std::string(60, 'k'), "aabbccddeeff", 1700000000, "koVDcOUgj7NJ"}, // exactly 128
        {std::string(63, 'u'), "k", "aabbccddeeff", 1700000000, "koV4FEUgjpIH"},                  // longest user part
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name + " / " + c.mac);
        char out[16];
        std::memset(out, 0, 13);
        std::memset(out + 13, 0x5a, 3);
        std::string name = c.name;
        ASSERT_EQ(genpin(out, name.data(), c.key.c_str(), c.mac.c_str(), c.t), 0);
        EXPECT_STREQ(out, c.pin);
        EXPECT_EQ(out[13], 0x5a); // nothing written past the 13-byte buffer
    }
}

TEST(Genpin, FailureCodes)
{
    struct Case
    {
        const char *label;
        std::optional<std::string> name, key, mac;
        int rc;
    };
    const Case cases[] = {
        {"missing name", std::nullopt, "k", "aabbccddeeff", GenPinBadName},
        {"empty name", "", "k", "aabbccddeeff", GenPinBadName},
        {"only a domain", "@isp", "k", "aabbccddeeff", GenPinBadName},
        {"user part of 64 bytes", std::string(64, 'u'), "k", "aabbccddeeff", GenPinBadName},
        {"user part of 200 bytes", std::string(200, 'u') + "@isp", "k", "aabbccddeeff", GenPinBadName},
        {"name and key over 128", std::string(60, 'u'), std::string(61, 'k'), "aabbccddeeff", GenPinBadName},
        {"missing key", "a", std::nullopt, "aabbccddeeff", GenPinBadKey},
        {"empty key", "a", "", "aabbccddeeff", GenPinBadKey},
        {"missing mac", "a", "k", std::nullopt, GenPinBadMac},
        {"empty mac", "a", "k", "", GenPinBadMac},
        {"eleven digits", "a", "k", "aabbccddeef", GenPinBadMac},
        {"trailing blank", "a", "k", "AA:BB:CC:DD:EE:FF ", GenPinBadMac},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        char out[13] = {};
        std::string name = c.name.value_or(std::string());
        EXPECT_EQ(genpin(out, c.name ? name.data() : nullptr, c.key ? c.key->c_str() : nullptr,
                         c.mac ? c.mac->c_str() : nullptr, 1700000000),
                  c.rc);
        EXPECT_STREQ(out, "");
    }
}

} // namespace
