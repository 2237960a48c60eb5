// The controller's diagnostics: what it records about the connection as it goes, the report
// built from it, and the token request with an answer for whoever asked.

#include "DVApp.h"

#include "Business/TokenReuest.h"
#include "Conf/Conf.h"
#include "Util/Log.h"
#include "Util/ThreadHandoff.h"

#include <QPointer>

namespace {
using json = nlohmann::ordered_json;

std::string iso(const QDateTime &t)
{
    return t.isValid() ? t.toUTC().toString(Qt::ISODate).toStdString() : std::string();
}

json errorJson(const DVError &error)
{
    return {{"domain", error.domain.toStdString()},
            {"code", error.code},
            {"description", error.localizedDescription.toStdString()},
            {"reason", error.localizedFailureReason.toStdString()}};
}

const char *stateName(qint64 state)
{
    switch (state) {
    case DVDialStateConnected:
        return "connected";
    case DVDialStateInProgress:
        return "connecting";
    case DVDialStateDisconnected:
        return "disconnected";
    default:
        return "unknown";
    }
}
} // namespace

bool DVApp::timeBasedRule()
{
    const Conf *conf = Conf::shared();
    const auto order = conf ? conf->accountrule.getOrder() : std::nullopt;
    if (!order)
        return false;
    for (const QString &rule : *order)
        if (rule.startsWith(QLatin1String("timepin")))
            return true;
    return false;
}

void DVApp::noteError(const DVError &error)
{
    _lastError = error;
    _lastErrorAt = _options.clock->now();
}

void DVApp::noteExchange(const BcomExchange &x, qint64 nextWaitMs)
{
    const QDateTime now = _options.clock->now();
    json heart = {{"lastExchange", iso(now)},
                  {"sent", x.sent.type.toStdString()},
                  {"reply", x.reply ? x.reply->type.toStdString() : std::string()},
                  {"httpStatus", x.httpStatus},
                  {"error", x.error.toStdString()},
                  {"continues", x.continues},
                  {"nextDue", nextWaitMs >= 0 ? json(iso(now.addMSecs(nextWaitMs))) : json(nullptr)}};
    std::lock_guard<std::mutex> lock(_heartMutex);
    _heart = std::move(heart);
}

QString DVApp::heldInterface() const
{
    if ((_dialState == DVDialStateConnected || _dialState == DVDialStateInProgress) && _dialInterface)
        return _dialInterface->_bsdName;
    return {};
}

json DVApp::diagnostics() const
{
    json report;
    report["state"] = stateName(_dialState);
    report["dialState"] = _dialState;
    report["interface"] = _dialInterface ? _dialInterface->_bsdName.toStdString() : std::string();
    report["connectedSince"] = _connectedSince.isValid() ? json(iso(_connectedSince)) : json(nullptr);
    report["area"] = Conf::area().toStdString();

    // The dial name's shape only: which rules made it and how long it was. Its text is the
    // account's credential for this moment and stays out.
    const Conf *conf = Conf::shared();
    json rules = json::array();
    if (const auto order = conf ? conf->accountrule.getOrder() : std::nullopt)
        for (const QString &r : *order)
            rules.push_back(r.toStdString());
    report["lastDial"] = {{"rule", rules}, {"timeBased", timeBasedRule()}, {"length", _pin.size()}, {"time", _time}};

    report["lastLinkEnd"] = {{"cause", _lastEndCause.toStdString()}, {"detail", _lastEndDetail.toStdString()}};
    report["lastError"] = _lastError ? errorJson(*_lastError) : json(nullptr);
    if (_lastError)
        report["lastError"]["at"] = iso(_lastErrorAt);
    {
        std::lock_guard<std::mutex> lock(_heartMutex);
        report["heartbeat"] = _heart.is_null() ? json::object() : _heart;
    }
    report["sideChannels"] = {{"token", _lastToken.is_null() ? json::object() : _lastToken}};

    const RedialSupervisor &r = *_redial;
    json redial = {{"enabled", r.enabled()},
                   {"attempts", r.attempts()},
                   {"refusalsInARow", r.refusals()},
                   {"stopped", r.stoppedForGood()},
                   {"message", r.stopMessage().toStdString()}};
    if (const auto at = r.nextAttemptAtMs())
        redial["nextAttemptInMs"] = qMax<qint64>(0, *at - _options.clock->monotonicMs());
    report["redial"] = redial;
    report["clock"] = _clockCheck.is_null() ? json::object() : _clockCheck;
    return report;
}

void DVApp::requestToken(std::function<void(json)> done)
{
    const auto password = _password.lock();
    const QString user = username();
    if (user.isEmpty() || !password) {
        if (done)
            done({{"error", "没有连接：令牌请求需要已拨号的账号"}});
        return;
    }
    auto request = std::make_shared<TokenReuest>(user, *password);
    QPointer<DVApp> self = this;
    request->onOutcome = [self, done](const std::optional<TokenNotificationInfo> &info, const QString &why) {
        json answer;
        if (info) {
            answer = {{"code", info->code}, {"message", info->message.toStdString()}};
            answer["token"] = info->token ? json(info->token->toStdString()) : json(nullptr);
            answer["redirect_uri"] = info->redirect_uri ? json(info->redirect_uri->toStdString()) : json(nullptr);
        } else {
            answer = {{"error", why.toStdString()}};
        }
        // Back to the controller's thread; the answer is dropped when the controller is gone.
        ThreadHandoff::post(self.data(), [self, done, answer] {
            if (!self)
                return;
            json summary = answer;
            summary.erase("token"); // the diagnostics say whether one came, never what it is
            summary["hasToken"] = answer.contains("token") && answer["token"].is_string();
            self->_lastToken = summary;
            if (done)
                done(answer);
        });
    };
    _queue->addOperation(request);
}
