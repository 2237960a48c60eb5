#include "SideChannel.h"

#include "Util/DVUtils.h"

#include <QStringList>

namespace SideChannel {

HostAndPort splitHostAndPort(const QString &address)
{
    const QStringList pieces = address.split(QLatin1Char(':'));
    HostAndPort result;
    result.host = pieces.value(0);
    if (pieces.size() == 2)
        result.port = DVUtils::intValue(pieces.at(1));
    return result;
}

QString userInfoText(const QVariantMap &userInfo)
{
    QStringList entries;
    for (auto it = userInfo.cbegin(); it != userInfo.cend(); ++it)
        entries << QStringLiteral("%1 = %2;").arg(it.key(), it.value().toString());
    return QStringLiteral("{") + entries.join(QLatin1Char(' ')) + QStringLiteral("}");
}

} // namespace SideChannel
