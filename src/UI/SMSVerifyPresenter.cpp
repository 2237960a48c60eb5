#include "SMSVerifyPresenter.h"

#include "Util/DVNotification.h"

#include <limits>

namespace {
QString title(qint64 seconds)
{
    return QStringLiteral("%1s").arg(seconds);
}
} // namespace

SMSVerifyPresenter::SMSVerifyPresenter(quint64 timeoutSeconds, QString msg, std::unique_ptr<TickSource> ticks)
    : _msg(std::move(msg))
    , _secondsLeft(timeoutSeconds == 0 ? DefaultSeconds
                                       : qint64(qMin<quint64>(timeoutSeconds, std::numeric_limits<qint32>::max())))
    , _ticks(std::move(ticks))
{}

SMSVerifyPresenter::~SMSVerifyPresenter()
{
    if (_ticks)
        _ticks->stop();
}

void SMSVerifyPresenter::start(View view)
{
    _view = std::move(view);
    if (_view.setButtonTitle)
        _view.setButtonTitle(title(_secondsLeft));
    _ticks->start([this] { tick(); });
}

void SMSVerifyPresenter::tick()
{
    if (_finished)
        return;
    if (_secondsLeft == 0) {
        _ticks->stop();
        if (_view.close)
            _view.close();
        return;
    }
    if (_view.setButtonTitle)
        _view.setButtonTitle(title(_secondsLeft));
    --_secondsLeft;
}

bool SMSVerifyPresenter::isValidCode(const QString &code)
{
    if (code.size() != 6)
        return false;
    for (const QChar c : code)
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    return true;
}

void SMSVerifyPresenter::finish(const QString &code)
{
    if (_finished)
        return;
    _finished = true;
    SMSVerifyFromUINotificationInfo info;
    info.code = code;
    DVNotificationCenter::defaultCenter().postNotificationName(
        DVNotification::DVNotificationNameSMSVerifyFromUI,
        {{DVNotification::NotificationInfoKeySMSVerifyFromUI, info}});
    _ticks->stop();
}
