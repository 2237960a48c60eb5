#include "ClientVersion.h"

#include <QCoreApplication>

std::optional<QString> dvClientShortVersion()
{
    const QString app = QCoreApplication::applicationVersion();
    if (!app.isEmpty())
        return app;
    const QString built = QStringLiteral(DORVIK_CLIENT_VERSION);
    if (built.isEmpty())
        return std::nullopt;
    return built;
}
