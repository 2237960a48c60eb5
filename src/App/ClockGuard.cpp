#include "ClockGuard.h"

#include "Conf/Conf.h"
#include "Util/Log.h"

#include <QEventLoop>
#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

nlohmann::ordered_json ClockCheck::toJson() const
{
    nlohmann::ordered_json j = {{"checked", checked}, {"timeBased", timeBased}};
    if (checked) {
        j["host"] = host.toStdString();
        j["offsetSecs"] = offsetSecs;
    }
    j["toleranceSecs"] = toleranceSecs;
    j["warning"] = warn;
    if (!message.isEmpty())
        j["message"] = message.toStdString();
    return j;
}

namespace ClockGuard {

Servers providerUrls()
{
    Servers servers;
    const Conf *conf = Conf::shared();
    if (!conf)
        return servers;
    const auto add = [](std::vector<QUrl> &to, const std::optional<QString> &text) {
        const QUrl url(text.value_or(QString()));
        if (url.isValid() && (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https")))
            to.push_back(url);
    };
    add(servers.first, conf->business.getHost());
    add(servers.first, conf->update.getHost());
    add(servers.fallback, conf->heart.getNegotiateUrl());
    return servers;
}

std::optional<QDateTime> parseHttpDate(const QByteArray &raw)
{
    const QString text = QString::fromLatin1(raw).trimmed();
    const QLocale c = QLocale::c();
    for (const QString &format :
         {QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"), QStringLiteral("dddd, dd-MMM-yy hh:mm:ss 'GMT'"),
          QStringLiteral("ddd MMM d hh:mm:ss yyyy")}) {
        QDateTime t = c.toDateTime(text, format);
        if (!t.isValid())
            continue;
        t.setTimeSpec(Qt::UTC);
        if (t.date().year() < 1970) // two-digit years of the old form
            t = t.addYears(100);
        return t;
    }
    return std::nullopt;
}

ClockCheck evaluate(const QDateTime &local, const QDateTime &server, const QString &host, bool timeBased)
{
    ClockCheck c;
    c.checked = true;
    c.host = host;
    c.offsetSecs = server.secsTo(local);
    c.timeBased = timeBased;
    c.toleranceSecs = kToleranceSecs;
    c.warn = timeBased && qAbs(c.offsetSecs) > kToleranceSecs;
    if (c.warn) {
        const qint64 minutes = (qAbs(c.offsetSecs) + 30) / 60;
        c.message =
            QStringLiteral("本机时间比运营商服务器%1约 %2 分钟，拨号可能被拒绝。请校准系统时间（例如开启自动对时）。")
                .arg(c.offsetSecs > 0 ? QStringLiteral("快") : QStringLiteral("慢"))
                .arg(minutes);
    }
    return c;
}

void check(const std::vector<QUrl> &urls, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs, QObject *context,
           std::function<void(const ClockCheck &)> done)
{
    struct State
    {
        int left = 0;
        bool answered = false;
    };
    auto state = std::make_shared<State>();
    state->left = int(urls.size());
    QPointer<QObject> receiver = context;
    const auto finish = [state, receiver, done](const ClockCheck &result) {
        if (state->answered || !receiver)
            return;
        state->answered = true;
        done(result);
    };
    const ClockCheck unchecked{false, {}, 0, timeBased, kToleranceSecs, false, {}};
    if (urls.empty()) {
        finish(unchecked);
        return;
    }
    // The replies outlive a caller that stopped waiting; the last one takes the client along.
    auto *network = new QNetworkAccessManager;
    for (const QUrl &url : urls) {
        QNetworkRequest request(url);
        request.setTransferTimeout(timeoutMs);
        QNetworkReply *reply = network->head(request);
        QObject::connect(reply, &QNetworkReply::finished, network,
                         [reply, url, clock, timeBased, state, finish, network, unchecked] {
                             reply->deleteLater();
                             --state->left;
                             const auto server = parseHttpDate(reply->rawHeader(QByteArrayLiteral("Date")));
                             if (server) {
                                 finish(evaluate(clock->now(), *server,
                                                 url.host() + QLatin1Char(':') + QString::number(url.port()),
                                                 timeBased));
                             } else if (state->left == 0 && !state->answered) {
                                 DVLOG() << "clock check: no provider server told the time";
                                 finish(unchecked);
                             }
                             if (state->left == 0)
                                 network->deleteLater();
                         });
    }
}

void check(const Servers &servers, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs, QObject *context,
           std::function<void(const ClockCheck &)> done)
{
    QPointer<QObject> receiver = context;
    check(servers.first, clock, timeBased, timeoutMs, context,
          [fallback = servers.fallback, clock, timeBased, timeoutMs, receiver, done](const ClockCheck &c) {
              if (c.checked || fallback.empty() || !receiver)
                  return done(c);
              check(fallback, clock, timeBased, timeoutMs, receiver.data(), done);
          });
}

ClockCheck checkBlocking(const Servers &servers, std::shared_ptr<Clock> clock, bool timeBased, int timeoutMs)
{
    QEventLoop loop;
    ClockCheck result;
    bool done = false;
    check(servers, std::move(clock), timeBased, timeoutMs, &loop, [&](const ClockCheck &c) {
        result = c;
        done = true;
        loop.quit();
    });
    if (!done)
        loop.exec();
    return result;
}

QString refusalHint()
{
    return QStringLiteral("拨号名含有基于时间的动态码：认证被拒绝可能是本机时间不准确所致，请校准系统时间后重试。");
}

} // namespace ClockGuard
