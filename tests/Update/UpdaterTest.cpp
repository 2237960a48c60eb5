// The update check and the dialog's presenter (download, verification, hand-over to the
// installer) against the simulated update service, with a small installation tree as the
// package source.

#include "support/TestData.h"

#include "SimHost.h"
#include "services/UpdateServer.h"

#include "Update/CheckUpdatePresenter.h"
#include "Update/Updater.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

namespace {

const QString kUpToDate = QStringLiteral("已经是最新版本");

using TestSupport::writeFile;

// A tiny installation at version 1.0 whose installer records how it was started.
struct FakeInstall
{
    QTemporaryDir dir;
    QString root() const { return dir.filePath(QStringLiteral("dorvik")); }
    QString launchRecord() const { return dir.filePath(QStringLiteral("launched")); }
    FakeInstall()
    {
        writeFile(root() + QStringLiteral("/bin/dorvik-cli"), "#!/bin/sh\necho dorvik-cli 1.0\n", true);
        writeFile(root() + QStringLiteral("/share/dorvik/version"), "1.0\n");
        writeFile(root() + QStringLiteral("/libexec/dorvik/dorvik-update-installer"),
                  "#!/bin/sh\necho \"$@\" > '" + launchRecord().toUtf8() + "'\n", true);
    }
};

class UpdateService : public ::testing::Test
{
protected:
    void start(const QString &scenario)
    {
        qputenv("DORVIK_SIM_UPDATE_TREE", install.root().toUtf8());
        SimOptions options;
        options.config = {{"update", {{"host", {{"default", "http://127.0.0.1:1/check"}}}}}};
        options.ephemeralPorts = true;
        if (!scenario.isEmpty())
            options.scenarios[QStringLiteral("update")] = scenario;
        ASSERT_TRUE(sim.start(options, {QStringLiteral("update")}));
        server = static_cast<UpdateServer *>(sim.service(QStringLiteral("update")));
    }
    QString host() const { return QStringLiteral("http://127.0.0.1:%1/check").arg(server->port()); }
    std::shared_ptr<Updater> updater(const QString &version, const QString &host)
    {
        auto u = std::make_shared<Updater>(QStringLiteral("1001"), QStringLiteral("demo"), version, host);
        u->setInstallRoot(install.root());
        return u;
    }

    // Runs a check; {offered?, text} with the thread it was answered on.
    struct Outcome
    {
        bool needUpdate = false;
        QString text;
        bool offMainThread = false;
    };
    Outcome check(const std::shared_ptr<Updater> &u)
    {
        std::mutex m;
        std::optional<Outcome> out;
        auto *mainThread = QThread::currentThread();
        const auto answer = [&](bool need) {
            return [&, need](const QString &text) {
                std::lock_guard<std::mutex> lock(m);
                EXPECT_FALSE(out) << "called twice";
                out = Outcome{need, text, QThread::currentThread() != mainThread};
            };
        };
        u->checkUpdateWithNeedUpdateHandler(answer(true), answer(false));
        EXPECT_TRUE(TestSupport::spinUntil(
            [&] {
                std::lock_guard<std::mutex> lock(m);
                return out.has_value();
            },
            20000));
        std::lock_guard<std::mutex> lock(m);
        return out.value_or(Outcome{});
    }

    FakeInstall install;
    SimHost sim;
    UpdateServer *server = nullptr;
};

TEST_F(UpdateService, CheckOutcomes)
{
    const auto data = TestData::load("update.json"); // the loop must not outlive the document
    for (const auto &c : data.at("checks")) {
        SCOPED_TRACE(c.dump());
        sim = SimHost();
        start(TestData::text(c, "scenario"));
        const bool badHost = c.value("badHost", false);
        const auto u = updater(TestData::text(c, "version"),
                               badHost ? QStringLiteral("http://127.0.0.1:%1/a b").arg(server->port()) : host());
        const Outcome out = check(u);
        const QString text = TestData::text(c, "text");
        EXPECT_TRUE(out.offMainThread);
        const bool offered = c.at("needUpdate");
        EXPECT_EQ(out.needUpdate, offered);
        if (offered) {
            EXPECT_EQ(out.text, QStringLiteral("http://127.0.0.1:%1/").arg(server->port()) + text);
            EXPECT_EQ(u->packageName(), text.section(QLatin1Char('/'), -1));
        } else {
            EXPECT_EQ(out.text, text);
        }
        if (!badHost) {
            EXPECT_EQ(server->lastContentType(), QByteArrayLiteral("application/json"));
            EXPECT_EQ(server->lastBody(), QByteArrayLiteral(R"({"Areacode":"1001","User":"demo","OS":"Linux"})"));
        }
    }
    // No server at all: the transport's own error text after the same prefix.
    const Outcome refused = check(updater(QStringLiteral("1.0"), QStringLiteral("http://127.0.0.1:1/")));
    EXPECT_FALSE(refused.needUpdate);
    EXPECT_TRUE(refused.text.startsWith(QStringLiteral("检查更新失败，错误:"))) << refused.text.toStdString();
}

// The dialog's walk: which label and page each step shows, and what Yes does.
TEST_F(UpdateService, PresenterStates)
{
    struct Case
    {
        const char *scenario;
        bool noInstaller;
        QStringList labels; // every label shown, in order
        bool quits;
    };
    const QString checking = QStringLiteral("客户端正在检查更新"), found = QStringLiteral("检查到更新，是否下载"),
                  downloading = QStringLiteral("客户端正在下载更新"),
                  done = QStringLiteral("下载完成，是否退出并替换程序");
    const Case cases[] = {
        {"", false, {checking, found, downloading, done}, true},
        {"equal", false, {checking, kUpToDate}, false},
        {"uppercase-hash", false, {checking, found, downloading, QStringLiteral("验证失败")}, false},
        {"", true, {checking, found, downloading, QStringLiteral("更新失败")}, false},
        {"missing-package",
         false,
         {checking, found, downloading, QStringLiteral("下载更新失败，错误:HTTP 404")},
         false},
    };
    const QString tmp = TestSupport::sandboxDir() + QStringLiteral("/tmp");
    QDir().mkpath(tmp);
    qputenv("TMPDIR", tmp.toUtf8());
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.scenario) + (c.noInstaller ? " no installer" : ""));
        sim = SimHost();
        start(QString::fromLatin1(c.scenario));
        QFile::remove(install.launchRecord());
        const QString installer = install.root() + QStringLiteral("/libexec/dorvik/dorvik-update-installer");
        if (c.noInstaller)
            QFile::rename(installer, installer + QStringLiteral(".away"));

        std::vector<int> delays;
        std::vector<std::function<void()>> timers;
        bool quit = false;
        CheckUpdatePresenter::Environment env;
        env.makeUpdater = [&] { return updater(QStringLiteral("1.0"), host()); };
        env.singleShot = [&](int ms, std::function<void()> f) {
            delays.push_back(ms);
            timers.push_back(std::move(f));
        };
        env.quit = [&] { quit = true; };
        CheckUpdatePresenter p(env);
        QStringList labels;
        QList<int> pages;
        QObject::connect(&p, &CheckUpdatePresenter::changed, [&] {
            labels << p.label();
            pages << p.page();
        });
        p.viewDidAppear();
        const auto settled = [&] {
            return labels.size() >= 2 && p.state() != CheckUpdatePresenter::Downloading
                   && p.state() != CheckUpdatePresenter::Checking;
        };
        ASSERT_TRUE(TestSupport::spinUntil(settled, 20000));
        if (p.state() == CheckUpdatePresenter::UpdateFound) {
            p.yes();
            ASSERT_TRUE(TestSupport::spinUntil(
                [&] {
                    return p.state() == CheckUpdatePresenter::Downloaded || p.state() == CheckUpdatePresenter::Failed;
                },
                30000));
        }
        EXPECT_EQ(labels, c.labels);
        const int expectedPage = p.state() == CheckUpdatePresenter::Failed ? 0 : 2;
        EXPECT_EQ(pages.back(), expectedPage);
        if (labels.contains(downloading)) {
            EXPECT_EQ(pages[labels.indexOf(downloading)], 1);
        }
        if (c.quits) {
            EXPECT_FLOAT_EQ(p.downloadProgress(), 100.0f);
            p.yes();
            ASSERT_EQ(delays, std::vector<int>{1000});
            EXPECT_FALSE(quit);
            timers.front()();
            EXPECT_TRUE(quit);
            // The staged installer got this process, the package and the installation.
            ASSERT_TRUE(TestSupport::spinUntil([&] { return QFileInfo(install.launchRecord()).size() > 0; }, 10000));
            QFile record(install.launchRecord());
            ASSERT_TRUE(record.open(QIODevice::ReadOnly));
            const QStringList args = QString::fromUtf8(record.readAll()).trimmed().split(QLatin1Char(' '));
            ASSERT_EQ(args.size(), 3);
            EXPECT_EQ(args[0], QString::number(QCoreApplication::applicationPid()));
            EXPECT_EQ(QFileInfo(args[1]).fileName(), QStringLiteral("dorvik-1.0.1-linux.tar.gz"));
            EXPECT_EQ(args[2], install.root());
        }
        if (c.noInstaller)
            QFile::rename(installer + QStringLiteral(".away"), installer);

        // No asks the view to close.
        int closed = 0;
        QObject::connect(&p, &CheckUpdatePresenter::closeRequested, [&] { ++closed; });
        p.no();
        EXPECT_EQ(closed, 1);
    }
}

} // namespace
