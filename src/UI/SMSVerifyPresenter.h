#pragma once

#include "DyPwdCountdown.h"

#include <QString>

#include <functional>
#include <memory>

// The SMS-code dialog without its widgets: the text to show, the countdown on the button, the
// check of the typed code and the one answer sent back to the verification, however the
// dialog goes away.
class SMSVerifyPresenter
{
public:
    static constexpr qint64 DefaultSeconds = 90;
    static QString fallbackMessage() { return QStringLiteral("请输出短信验证码，超时或错误会导致断开连接。"); }

    struct View
    {
        std::function<void(const QString &title)> setButtonTitle;
        std::function<void()> close; // the countdown ran out
    };

    // 0 seconds means the default 90; an empty message shows the fallback text.
    SMSVerifyPresenter(quint64 timeoutSeconds, QString msg, std::unique_ptr<TickSource> ticks);
    ~SMSVerifyPresenter();

    QString labelText() const { return _msg.isEmpty() ? fallbackMessage() : _msg; }
    qint64 secondsLeft() const { return _secondsLeft; }

    // Shows "%lds" and starts the countdown, whose first tick comes at once and shows the full
    // number again; the dialog closes on the tick after the one that showed "1s".
    void start(View view);
    void tick();

    // Exactly six ASCII digits: an unsigned decimal number that is the whole text.
    static bool isValidCode(const QString &code);

    // The dialog goes away: posts DVNotificationNameSMSVerifyFromUI with `code` as it stands
    // (possibly empty) the first time only, then stops the countdown.
    void finish(const QString &code);
    bool finished() const { return _finished; }

private:
    QString _msg;
    qint64 _secondsLeft;
    std::unique_ptr<TickSource> _ticks;
    View _view;
    bool _finished = false;
};
