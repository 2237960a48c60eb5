#include "DVError.h"

#include <netdb.h>

QString DVError::description() const
{
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"").arg(domain).arg(code).arg(localizedDescription);
}

QString stringWithError(const DVError &error)
{
    if (error.domain == DVErrorDomain::CFNetwork && error.code == 2) {
        const int gai = error.userInfo.value(kCFGetAddrInfoFailureKey).toInt();
        if (gai != 0)
            return QString::fromUtf8(gai_strerror(gai));
    }
    if (!error.localizedFailureReason.isEmpty())
        return error.localizedFailureReason;
    if (!error.localizedDescription.isEmpty())
        return error.localizedDescription;
    return error.description();
}
