// Bubbles from a configuration answer reach a real notification service on a private
// session bus; pressing the web bubble's button opens its address. Run by
// tests/rigs/notify-session.sh, which says whether a service runs (DORVIK_NOTIFY_RIG).

#include "BusinessTestSupport.h"

#include "Business/BubbleCenter.h"
#include "Business/ConfigReq.h"
#include "support/TestData.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

#include <gtest/gtest.h>

#include <atomic>

using Logs = LogCapture;

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");

QString rigMode()
{
    return qEnvironmentVariable("DORVIK_NOTIFY_RIG");
}

QDBusMessage mock(const QString &method, const QVariantList &args)
{
    QDBusMessage m =
        QDBusMessage::createMethodCall(kService, kPath, QStringLiteral("org.freedesktop.DBus.Mock"), method);
    m.setArguments(args);
    return QDBusConnection::sessionBus().call(m);
}

QVariant plain(const QVariant &v)
{
    return v.canConvert<QDBusVariant>() && v.userType() == qMetaTypeId<QDBusVariant>()
               ? v.value<QDBusVariant>().variant()
               : v;
}

// The arguments of every call of `method` the service received, in order.
std::vector<QVariantList> callsOf(const QString &method)
{
    std::vector<QVariantList> out;
    const QDBusMessage reply = mock(QStringLiteral("GetMethodCalls"), {method});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return out;
    const QDBusArgument arg = reply.arguments().at(0).value<QDBusArgument>();
    arg.beginArray();
    while (!arg.atEnd()) {
        qulonglong stamp = 0;
        QVariantList args;
        arg.beginStructure();
        arg >> stamp >> args;
        arg.endStructure();
        for (auto &a : args)
            a = plain(a);
        out.push_back(args);
    }
    arg.endArray();
    return out;
}

QStringList stringsOf(const QVariant &v)
{
    if (v.userType() == qMetaTypeId<QDBusArgument>())
        return qdbus_cast<QStringList>(v.value<QDBusArgument>());
    return v.toStringList();
}

void press(quint32 id, const QString &key)
{
    const QDBusMessage r =
        mock(QStringLiteral("EmitSignal"),
             {kService, QStringLiteral("ActionInvoked"), QStringLiteral("us"),
              QVariantList{QVariant::fromValue(QDBusVariant(id)), QVariant::fromValue(QDBusVariant(key))}});
    ASSERT_EQ(r.type(), QDBusMessage::ReplyMessage) << r.errorMessage().toStdString();
}

class Bubbles : public BizTest::BusinessServerTest
{
protected:
    void SetUp() override
    {
        if (rigMode().isEmpty())
            GTEST_SKIP() << "needs tests/rigs/notify-session.sh";
        BusinessServerTest::SetUp();
        center.setConnectedPredicate([this] { return connected.load(); });
        center.setUrlOpener([this](const QUrl &url) { opened.push_back(url); });
        if (rigMode() == QLatin1String("service"))
            mock(QStringLiteral("ClearCalls"), {});
    }

    void request() { BizTest::runToEnd(std::make_shared<ConfigReq>(base, QStringLiteral("demo"), &center)); }

    BubbleCenter center;
    std::atomic<bool> connected{true};
    std::vector<QUrl> opened;
};

// Two valid bubbles (a text and a web one) and three the client drops.
ordered_json answer()
{
    return TestData::load("business.json").at("bubbles");
}

TEST_F(Bubbles, ValidBubblesAreShownAndTheWebButtonOpensTheAddress)
{
    if (rigMode() != QLatin1String("service"))
        GTEST_SKIP() << "needs a notification service";
    server->setConfigAnswer(answer());
    Logs logs;
    request();
    ASSERT_TRUE(TestSupport::spinUntil([&] { return center.deliveredNotifications().size() == 2; }, 10000));

    const auto notifies = callsOf(QStringLiteral("Notify"));
    ASSERT_EQ(notifies.size(), 2u);
    // Notify(app, replaces, icon, summary, body, actions, hints, timeout)
    EXPECT_EQ(notifies[0].at(3).toString(), QStringLiteral("欢迎"));
    EXPECT_EQ(notifies[0].at(4).toString(), QStringLiteral("您已接入网络"));
    EXPECT_TRUE(stringsOf(notifies[0].at(5)).isEmpty());
    EXPECT_EQ(notifies[1].at(3).toString(), QStringLiteral("网络公告"));
    EXPECT_EQ(notifies[1].at(4).toString(), QStringLiteral("http://127.0.0.1:9/notice?id=7"));
    EXPECT_EQ(stringsOf(notifies[1].at(5)), (QStringList{BubbleCenter::OpenActionKey, QStringLiteral("详细")}));

    const QString droppedPrefix = QStringLiteral("pop bubble failed, data is ");
    int dropped = 0;
    for (const auto &l : logs.all())
        dropped += l.startsWith(droppedPrefix) ? 1 : 0;
    EXPECT_EQ(dropped, 2) << logs.all().join(u'|').toStdString();
    EXPECT_TRUE(logs.has(QStringLiteral("pop bubble failed, wrong type: popup")));

    quint32 textId = 0, webId = 0;
    for (const auto &n : center.deliveredNotifications())
        (n.hasActionButton ? webId : textId) = n.identifier;
    ASSERT_NE(webId, 0u);
    ASSERT_NE(textId, 0u);

    // Activating a text bubble opens nothing and only takes it away.
    press(textId, QStringLiteral("default"));
    ASSERT_TRUE(TestSupport::spinUntil([&] { return center.deliveredNotifications().size() == 1; }));
    EXPECT_TRUE(opened.empty());

    press(webId, BubbleCenter::OpenActionKey);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return !opened.empty(); }));
    EXPECT_EQ(opened.front(), QUrl(QStringLiteral("http://127.0.0.1:9/notice?id=7")));
    ASSERT_TRUE(TestSupport::spinUntil([&] { return callsOf(QStringLiteral("CloseNotification")).size() == 2; }));
    EXPECT_TRUE(center.deliveredNotifications().empty());
}

TEST_F(Bubbles, WithoutANotificationServiceTheBubbleIsLoggedAndDropped)
{
    if (rigMode() != QLatin1String("no-service"))
        GTEST_SKIP() << "needs a bus without a notification service";
    server->setConfigAnswer(answer());
    Logs logs;
    request();
    ASSERT_TRUE(TestSupport::spinUntil(
        [&] {
            int failed = 0;
            for (const auto &l : logs.all())
                failed += l.startsWith(QStringLiteral("pop bubble failed, notification service: ")) ? 1 : 0;
            return failed == 2;
        },
        10000))
        << logs.all().join(u'|').toStdString();
    EXPECT_TRUE(center.deliveredNotifications().empty());
}

} // namespace
