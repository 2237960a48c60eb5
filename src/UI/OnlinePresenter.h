#pragma once

#include "Util/DVNotification.h"

#include <QString>

#include <functional>

// What the online view decides, without any widget: the clock's text, the web-search address
// and the reaction to an SMS-verification result. The view shows what comes back.
class OnlinePresenter
{
public:
    // "上网时长  HH:MM:SS": the seconds are the remainder of the total by 60 and the hours are
    // not wrapped at 24, so a long session reads e.g. 25:00:00.
    static QString clockText(qint32 seconds);

    // Keeps every letter of any script (Chinese included) and writes every other character,
    // digits and combining marks too, as %XX of its UTF-8 bytes (upper-case hex).
    static QString encodeSearchText(const QString &text);
    // host + "/s?wd=" + the encoded text; the host is a build-time setting (DORVIK_SEARCH_HOST).
    static QString searchAddress(const QString &text, const QString &host = defaultSearchHost());
    static QString defaultSearchHost();

    // How the view acts on one SMS-verification result.
    struct Actions
    {
        std::function<void()> stopConn;                                          // hang up
        std::function<void(const QString &message)> showError;                   // the "错误" alert
        std::function<void(quint64 timeoutSeconds, const QString &msg)> askCode; // open the dialog
    };
    // A non-zero code hangs up first and then shows the error (its description, or
    // "短信验证错误"); code 0 asks the user for the code; no error, or another payload, does
    // nothing.
    static void onSmsVerifyResult(const DVNotificationMessage &message, const Actions &actions);
};
