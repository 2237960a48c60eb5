#include "OnlinePresenter.h"

#include <QChar>

#ifndef DORVIK_SEARCH_HOST
#define DORVIK_SEARCH_HOST "https://www.baidu.com"
#endif

QString OnlinePresenter::clockText(qint32 seconds)
{
    const qint32 hours = seconds / 3600;
    const qint32 minutes = seconds / 60 - hours * 60;
    const qint32 rest = seconds % 60;
    return QStringLiteral("上网时长  %1:%2:%3")
        .arg(hours, 2, 10, QLatin1Char('0'))
        .arg(minutes, 2, 10, QLatin1Char('0'))
        .arg(rest, 2, 10, QLatin1Char('0'));
}

QString OnlinePresenter::encodeSearchText(const QString &text)
{
    QString out;
    // By code point, so that letters outside the basic plane (surrogate pairs) stay letters.
    for (const char32_t cp : text.toUcs4()) {
        const QString one = QString::fromUcs4(&cp, 1);
        if (QChar::isLetter(cp)) {
            out += one;
            continue;
        }
        for (const char byte : one.toUtf8())
            out += QStringLiteral("%%1").arg(uchar(byte), 2, 16, QLatin1Char('0')).toUpper();
    }
    return out;
}

QString OnlinePresenter::defaultSearchHost()
{
    return QStringLiteral(DORVIK_SEARCH_HOST);
}

QString OnlinePresenter::searchAddress(const QString &text, const QString &host)
{
    QString base = host;
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base + QStringLiteral("/s?wd=") + encodeSearchText(text);
}

void OnlinePresenter::onSmsVerifyResult(const DVNotificationMessage &message, const Actions &actions)
{
    const auto *info = message.payload<SMSVerifyToUINotificationInfo>(DVNotification::NotificationInfoKeySMSVerifyToUI);
    if (!info || !info->err)
        return;
    if (info->err->code != 0) {
        const QString text = info->err->localizedDescription.isEmpty() ? QStringLiteral("短信验证错误")
                                                                       : info->err->localizedDescription;
        // Hang up before the alert: the alert waits for the user, the link must not.
        actions.stopConn();
        actions.showError(text);
        return;
    }
    actions.askCode(info->timeoutSeconds, info->err->localizedDescription);
}
