#pragma once

#include <cstddef>
#include <cstdint>

// Byte-level building blocks of the MAC-bound PIN ("timepinV2") and the encoder of the
// "timepinV3" rule. Plain functions over NUL-terminated byte strings and raw buffers; they
// allocate nothing and never touch Qt, so the dial path stays cheap.

// Result codes of genpin.
enum GenPinResult : int {
    GenPinOk = 0,
    GenPinBadName = -2, // name missing or empty, user part too long, or name + key too long
    GenPinBadKey = -3,  // key missing or empty
    GenPinBadMac = -4,  // MAC missing or not exactly 12 hex digits
};

// Writes the 12-character MAC-bound PIN to out (at least 13 bytes, zeroed by the caller: the
// PIN itself is not terminated here). The name is cut at its first "@" IN PLACE (the caller's
// buffer is changed). t is the time in seconds. Returns a GenPinResult.
int genpin(char *out, char *name, const char *key, const char *mac, std::uint64_t t);

// Cuts src at its first "@" in place (the "@" becomes a NUL) and copies the text before it,
// without a terminator, into dest. Returns the number of bytes copied; 0 when src is null or
// when the text does not fit into destSize bytes with room left for a terminator (dest is
// then left untouched).
int toUsername(char *dest, std::size_t destSize, char *src);

// Collects the hex digits of a MAC text into dest (13 bytes, zeroed by the caller), upper case
// folded to lower case, everything else skipped. 0 when exactly 12 digits were found and the
// twelfth is the text's last character, -1 otherwise (also for null or empty input).
int toTargetMACADDR(const char *mac, char *dest);

// Internet checksum over little-endian 16-bit words; the result is in the low 16 bits.
// The word loop always runs once, so buf must hold at least max(len, 2) bytes.
std::uint32_t GetSumWithChar(const unsigned char *buf, std::size_t len);

// The two encoders of one family: every input byte pair gives three characters, the last of a
// lone trailing byte being "=". Writes at most outCap bytes and a terminating NUL only when
// there is room for it. base_encode uses alphabet A, customBase64Encode alphabet B and a
// signed shift in the second index.
void base_encode(const unsigned char *in, std::size_t inLen, char *out, std::size_t outCap);
void customBase64Encode(const unsigned char *in, std::size_t inLen, char *out, std::size_t outCap);
