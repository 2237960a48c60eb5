#pragma once

#include "Util/DVError.h"

#include <QString>

#include <optional>

// Errors of the QR-code log-in, domain "QrcodeDomain". ID 0 ("ok") also travels with a
// successful answer: an error of code 0 means "no error".
class QrCodeError
{
public:
    enum ID : qint64 {
        Ok = 0,
        ParseFailed = 1,
        ServerFailed = 2,
        RequestTimeout = 3,
        ScanTimeout = 4,
        DecryptFailed = 5,
        InitFailed = 6,
    };

    static const QString domain;

    // Description: the ID's text, or "<text>,<info>" when info is given. IDs outside 0-6 have
    // no text.
    static DVError createErrorWithID(qint64 id, const std::optional<QString> &info = std::nullopt);
    static QString textOfID(qint64 id);
};
