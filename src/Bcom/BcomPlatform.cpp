#include "BcomPlatform.h"

#include "Util/DVEnv.h"

#include <QCoreApplication>

namespace BcomPlatform {

QString clientVersion()
{
    const QString v = QCoreApplication::applicationVersion();
    return v.isEmpty() ? QStringLiteral(DORVIK_BCOM_VERSION) : v;
}

QString osDescription()
{
    return DVEnv::shared().getOSType();
}

} // namespace BcomPlatform
