#pragma once

// Shared set-up of the window tests: the demo configuration with no servers to reach, a
// controller host over a simulated machine, and a main window whose log-in views use a
// hand-driven countdown and no keychain.

#include "App/DVAppHost.h"
#include "Dial/simulated/SimulatedPlatform.h"
#include "DyPwdCountdown.h"
#include "MessageBox.h"
#include "baseWindow.h"

#include <QString>
#include <QUrl>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

namespace UiTest {

// Loads the demo configuration (servers unreachable on purpose) and selects `area`.
void useDemoConfiguration(const QString &area = QStringLiteral("default"));
// Forgets every preference the views write.
void resetPreferences();

// A machine with `interfaces` of the two simulated ones (eth0 up, wlan0 down), where the
// access concentrator accepts only the password "demo123".
SimulatedConfig machine(int interfaces, int callDelayMs = 0);
std::unique_ptr<DVAppHost> makeHost(const SimulatedConfig &config);

// A tick source the test drives.
class ManualTicks : public TickSource
{
public:
    void start(std::function<void()> onTick) override
    {
        _onTick = std::move(onTick);
        running = true;
        _onTick();
    }
    void stop() override { running = false; }
    void tick()
    {
        if (running && _onTick)
            _onTick();
    }
    bool running = false;

private:
    std::function<void()> _onTick;
};

// The main window over `host`; the log-in views it makes use `ticks` (may be null). Its online
// views show no web page and open addresses into `opened` (may be null) instead of a browser.
std::unique_ptr<baseWindow> makeWindow(DVAppHost *host, ManualTicks **ticks = nullptr,
                                       std::vector<QUrl> *opened = nullptr);
// Online views without a web page whose addresses go to `opened` (may be null).
wifiViewController::Options quietOnlineOptions(std::vector<QUrl> *opened = nullptr);

// What the SMS verification tells the online view: its verdict and the time the user has.
void postSmsToUi(std::optional<DVError> err, quint64 seconds = 60);

// Runs the event loop until `done` or the time-out.
bool waitFor(const std::function<bool()> &done, int timeoutMs = 10000);

// Every window test starts on the demo configuration with nothing remembered, a full countdown,
// and alerts recorded and answered with their first button instead of waiting for a click.
class Fixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        useDemoConfiguration();
        resetPreferences();
        MessageBox::clearShown();
        MessageBox::setDefaultAnswer(0);
        DyPwdCountdown::counter() = DyPwdCountdown::Seconds;
    }
    void TearDown() override { MessageBox::setDefaultAnswer(std::nullopt); }
};

// The main window over a host of `config`, showing the log-in view.
class WindowFixture : public Fixture
{
protected:
    void open(const SimulatedConfig &config)
    {
        host = makeHost(config);
        window = makeWindow(host.get(), &ticks, &opened);
        window->showLogIn();
        window->show();
    }
    void TearDown() override
    {
        MessageBox::setShowHook({});
        window.reset();
        host.reset();
        Fixture::TearDown();
    }

    std::unique_ptr<DVAppHost> host;
    std::unique_ptr<baseWindow> window;
    ManualTicks *ticks = nullptr;
    std::vector<QUrl> opened; // what the online view asked a browser to open
};

} // namespace UiTest
