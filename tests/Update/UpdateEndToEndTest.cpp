// dorvik-cli installed into a temporary prefix asks the simulated update service, downloads
// the newer package made from that very installation, and is replaced by it.

#include "ToolProcess.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
using json = nlohmann::ordered_json;

struct Result
{
    int exit = -1;
    QString out, err;
};

Result run(const QString &program, const QStringList &args,
           const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    const auto r = TestSupport::runProgram(program, args, {}, env, 240000);
    return {r.exitCode, QString::fromUtf8(r.out), QString::fromUtf8(r.err)};
}

TEST(UpdateEndToEnd, TheInstalledClientUpdatesItself)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString prefix = dir.filePath(QStringLiteral("dorvik"));
    const Result installed = run(QStringLiteral(DORVIK_CMAKE), {QStringLiteral("--install"), TestSupport::buildDir(),
                                                                QStringLiteral("--prefix"), prefix});
    ASSERT_EQ(installed.exit, 0) << installed.err.toStdString();
    const QString cli = prefix + QStringLiteral("/bin/dorvik-cli");
    const Result before = run(cli, {QStringLiteral("--version")});
    ASSERT_EQ(before.exit, 0);
    const QString oldVersion = before.out.trimmed().section(QLatin1Char(' '), -1);
    const QString newVersion = oldVersion + QStringLiteral(".1");

    json config = demoConfigOnFreePorts();
    const quint16 port = freeLocalPort();
    config["update"]["host"] = {{"default", "http://127.0.0.1:" + std::to_string(port) + "/update"}};
    const QString configPath = dir.filePath(QStringLiteral("system.json"));
    ASSERT_TRUE(writeJsonFile(configPath, config));

    qputenv("DORVIK_SIM_UPDATE_TREE", prefix.toUtf8());
    ToolProcess sim(QStringLiteral(DORVIK_SIM));
    ASSERT_TRUE(
        sim.startReady({QStringLiteral("--config"), configPath, QStringLiteral("--only"), QStringLiteral("update")}));

    // The client's staged installer goes to a temporary directory of this test.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QDir().mkpath(dir.filePath(QStringLiteral("tmp")));
    env.insert(QStringLiteral("TMPDIR"), dir.filePath(QStringLiteral("tmp")));
    const QStringList common{QStringLiteral("--config"), configPath};
    const QString address =
        QStringLiteral("http://127.0.0.1:%1/packages/dorvik-%2-linux.tar.gz").arg(port).arg(newVersion);

    const Result check = run(cli, QStringList{QStringLiteral("update"), QStringLiteral("--check")} + common, env);
    EXPECT_EQ(check.exit, 0) << check.err.toStdString();
    EXPECT_TRUE(check.out.contains(address)) << check.out.toStdString();

    const Result update = run(cli, QStringList{QStringLiteral("update"), QStringLiteral("--yes")} + common, env);
    ASSERT_EQ(update.exit, 0) << update.err.toStdString();
    EXPECT_TRUE(update.out.contains(address));

    // The installer runs on after dorvik-cli has ended; it is done when the old tree is aside.
    ASSERT_TRUE(TestSupport::spinUntil(
        [&] { return QFileInfo::exists(prefix + QStringLiteral(".previous/bin/dorvik-cli")); }, 120000));
    const Result after = run(cli, {QStringLiteral("--version")});
    EXPECT_EQ(after.out.trimmed(), QStringLiteral("dorvik-cli ") + newVersion);
    const Result previous = run(prefix + QStringLiteral(".previous/bin/dorvik-cli"), {QStringLiteral("--version")});
    EXPECT_EQ(previous.out.trimmed(), QStringLiteral("dorvik-cli ") + oldVersion);

    // Only the real update downloaded.
    json stats = sim.interruptForStats().value("update", json::object());
    EXPECT_EQ(stats["checks"], 2);
    EXPECT_EQ(stats["linuxChecks"], 2);
    EXPECT_EQ(stats["downloads"], 1);
}

} // namespace
