#include "UiTestSupport.h"

#include "App/DVApp.h"
#include "Conf/Conf.h"
#include "Conf/UIConf.h"
#include "Dial/PPPoE.h"
#include "Util/DVNotification.h"
#include "Util/UserDefaults.h"
#include "Util/keychain/Keychain.h"

#include "support/TestData.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace UiTest {

void useDemoConfiguration(const QString &area)
{
    auto config = TestData::demoConfig();
    // Nothing to reach: the connection's tasks end at once.
    config["business"]["host"] = {{"default", ""}};
    config["heart"]["negotiateurl"] = {{"default", "http://127.0.0.1:9/negotiate"}};
    config["heart"]["hearbeaturl"] = {{"default", "http://127.0.0.1:9/heartbeat"}};
    config["sms"]["host"] = {{"default", "127.0.0.1"}};       // no port: does not run
    config["dynmicpwd"]["host"] = {{"default", "127.0.0.1"}}; // no port: refused at once
    Conf::setShared(Conf::fromJson(QByteArray::fromStdString(config.dump())));
    UIConf::shared().setArea(area);
}

void resetPreferences()
{
    UIConf &ui = UIConf::shared();
    ui.setRememberInterface(false);
    ui.setRememberPWd(false);
    ui.setAutoLogin(false);
    UserDefaults::saveConf(false, QStringLiteral("isconnected"));
}

SimulatedConfig machine(int interfaces, int callDelayMs)
{
    SimulatedConfig config;
    config.interfaces.resize(size_t(interfaces));
    config.stepDelayMs = 20;
    config.callDelayMs = callDelayMs;
    config.authHook = [](const QString &, const QString &password, std::function<void(bool, QString)> done) {
        done(password == QStringLiteral("demo123"), QStringLiteral("wrong password"));
    };
    return config;
}

std::unique_ptr<DVAppHost> makeHost(const SimulatedConfig &config)
{
    return std::make_unique<DVAppHost>([config] {
        return std::make_unique<DVApp>(std::make_unique<PPPoE>(std::make_unique<SimulatedPlatform>(config)));
    });
}

wifiViewController::Options quietOnlineOptions(std::vector<QUrl> *opened)
{
    wifiViewController::Options options;
    options.webPage = false;
    options.openUrl = [opened](const QUrl &url) {
        if (opened)
            opened->push_back(url);
    };
    return options;
}

std::unique_ptr<baseWindow> makeWindow(DVAppHost *host, ManualTicks **ticks, std::vector<QUrl> *opened)
{
    auto window = std::make_unique<baseWindow>(host, [ticks](DVAppHost *h, bool first, QWidget *parent) {
        logInViewController::Options options;
        auto manual = std::make_unique<ManualTicks>();
        if (ticks)
            *ticks = manual.get();
        options.countdownTicks = std::move(manual);
        options.keychain = std::make_shared<NullKeychain>();
        options.allowAutoLogin = first;
        return new logInViewController(h, std::move(options), parent);
    });
    window->setOnlineOptions(quietOnlineOptions(opened));
    return window;
}

void postSmsToUi(std::optional<DVError> err, quint64 seconds)
{
    SMSVerifyToUINotificationInfo info;
    info.err = std::move(err);
    info.timeoutSeconds = seconds;
    DVNotificationCenter::defaultCenter().postNotificationName(
        DVNotification::DVNotificationNameSMSVerifyToUI, {{DVNotification::NotificationInfoKeySMSVerifyToUI, info}});
}

bool waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

} // namespace UiTest
