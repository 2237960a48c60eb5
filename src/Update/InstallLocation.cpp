#include "InstallLocation.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace InstallLocation {

QString root()
{
    const QString up = QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    const QString canonical = QFileInfo(up).canonicalFilePath();
    return canonical.isEmpty() ? up : canonical;
}

QString installerPath(const QString &root)
{
    return root + QStringLiteral("/libexec/dorvik/dorvik-update-installer");
}

QString version(const QString &root)
{
    QFile file(root + QStringLiteral("/share/dorvik/version"));
    if (file.open(QIODevice::ReadOnly)) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (!line.isEmpty())
            return line;
    }
    return QStringLiteral(DORVIK_BUILT_VERSION);
}

} // namespace InstallLocation
