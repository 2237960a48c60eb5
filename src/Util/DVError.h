#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// The one error value of the whole client: what failed (domain and code), what to tell the
// user (description, failure reason) and anything a caller may want to look at (user info).
struct DVError
{
    QString domain;
    qint64 code = 0;
    QString localizedDescription;
    QString localizedFailureReason;
    QVariantMap userInfo;

    DVError() = default;
    DVError(QString d, qint64 c, QString description = {}, QString reason = {}, QVariantMap info = {})
        : domain(std::move(d))
        , code(c)
        , localizedDescription(std::move(description))
        , localizedFailureReason(std::move(reason))
        , userInfo(std::move(info))
    {}

    // Plain description, as a debugger would print the error.
    QString description() const;
};

// Error domains shared across layers.
namespace DVErrorDomain {
inline const QString POSIX = QStringLiteral("NSPOSIXErrorDomain");
inline const QString CFNetwork = QStringLiteral("kCFErrorDomainCFNetwork");
inline const QString NetDB = QStringLiteral("kCFStreamErrorDomainNetDB");
} // namespace DVErrorDomain

// User-info key under which a failed host lookup keeps the resolver's getaddrinfo code.
inline const QString kCFGetAddrInfoFailureKey = QStringLiteral("kCFGetAddrInfoFailureKey");

// Readable text for an error: the resolver's own text for a failed lookup, else the failure
// reason, else the description, else the plain description.
QString stringWithError(const DVError &error);

// Fills an optional error out-parameter; a null place is allowed (the caller is not interested).
inline void setError(DVError *place, DVError error)
{
    if (place)
        *place = std::move(error);
}
