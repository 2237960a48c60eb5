#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>
#include <QtGlobal>

#include <optional>

// The time-PIN generators of the "timepin", "timepinV1" and "timepinV3" rules. Class operations
// only. Both PINs start with a six-character code of the 5-second time quantum; "timepin" ends
// with two hex digits of an MD5 over quantum, name and key, "timepinV1" with a check byte of an
// MD5 over an interleaving of name, code and key.
//
// The generators read the clock themselves (the system clock, in UTC seconds); the overloads
// taking nowSecs use the given time instead (tests, benchmarks, a caller with its own Clock).
class PINRule
{
public:
    PINRule() = delete;

    // "timepin": 8 characters, or the user name itself when the key is missing or empty.
    // *oldTime (may be null) is only read: the quantum never falls behind it.
    static std::optional<QString> createPinWithKey(const std::optional<QString> &key, const qint64 *oldTime,
                                                   const std::optional<QString> &username);
    static std::optional<QString> createPinWithKey(const std::optional<QString> &key, const qint64 *oldTime,
                                                   const std::optional<QString> &username, qint64 nowSecs);

    // "timepinV1": 8 characters, or the user name itself when the key is missing or empty.
    // The quantum used is written back through oldTime (not when the key is missing).
    static std::optional<QString> createPinV1WithKey(const std::optional<QString> &key, qint64 *oldTime,
                                                     const std::optional<QString> &username);
    static std::optional<QString> createPinV1WithKey(const std::optional<QString> &key, qint64 *oldTime,
                                                     const std::optional<QString> &username, qint64 nowSecs);

    // The six bytes of flag6 followed by two lower-case hex digits of the check byte computed
    // from the key, the NUL-terminated name (null reads as empty) and flag6.
    static QByteArray geneFlagWithKey(const std::optional<QString> &key, const char *name, const char *flag6);

    // The 5-second quantum of nowSecs, never behind oldTime: oldTime + 1 when oldTime is ahead.
    static qint64 timeQuantum(qint64 nowSecs, const qint64 *oldTime);
    // The six-character time code of a quantum (characters 32..63 and 65..96; never "@").
    static void timeCode(qint64 quantum, char out[6]);

    // Allocation-free forms of the two generators for the dial path: write the 8-character PIN
    // to out and return true, or return false (nothing written, oldTime untouched) when the key
    // is missing or empty, in which case the user name itself stands for the PIN.
    static bool pinInto(const std::optional<QString> &key, QStringView username, const qint64 *oldTime, qint64 nowSecs,
                        char out[8]);
    static bool pinV1Into(const std::optional<QString> &key, QStringView username, qint64 *oldTime, qint64 nowSecs,
                          char out[8]);

    // Byte-level forms over UTF-8 bytes.
    static void pinBytes(const char *name, qsizetype nameLen, const char *key, qsizetype keyLen, qint64 quantum,
                         char out[8]);
    static void flagBytes(const char *key, qsizetype keyLen, const char *name, qsizetype nameLen, const char *flag6,
                          char out[8]);
};
