#include "Util/UserDefaults.h"
#include "Util/QtPrinters.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

namespace {

const QString kStep = QStringLiteral("DORVIK_PREFS_STEP");

// Runs this test binary again as a separate process that performs one step of the scenario
// below on the same preference store; true when the step's checks passed there.
void runStepInAnotherProcess(const QString &step)
{
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(kStep, step);
    env.insert(QStringLiteral("DORVIK_TEST_KEEP_HOME"), QStringLiteral("1")); // share this sandbox
    child.setProcessEnvironment(env);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=UserDefaultsStep.*")});
    ASSERT_TRUE(child.waitForFinished(120000)) << step;
    const QString out = QString::fromUtf8(child.readAll());
    EXPECT_EQ(child.exitCode(), 0) << step << "\n" << out.toStdString();
    EXPECT_TRUE(out.contains(QStringLiteral("[  PASSED  ] 1 test"))) << step << "\n" << out.toStdString();
    EXPECT_FALSE(out.contains(QStringLiteral("SKIPPED"))) << step << "\n" << out.toStdString();
}

const QVariantMap kAreaConfig{{QStringLiteral("host"), QStringLiteral("10.0.0.1")}, {QStringLiteral("port"), 8080}};

} // namespace

// One process per step, as one run of the client after another.
TEST(UserDefaults, ValuesAndTheWelcomeMarkerOutliveTheProcess)
{
    if (!qEnvironmentVariableIsEmpty(kStep.toLatin1().constData()))
        GTEST_SKIP() << "child run";
    // Nothing is stored yet.
    for (const QString &key : {PrefKey::isconnected, PrefKey::areacode, QStringLiteral("1001")}) {
        EXPECT_FALSE(UserDefaults::loadValueForKey(key).isValid()) << key;
        EXPECT_FALSE(UserDefaults::getConf(key)) << key;
    }
    runStepInAnotherProcess(QStringLiteral("first-run"));
    runStepInAnotherProcess(QStringLiteral("second-run"));

    // And this process, started before both, sees their writes too.
    EXPECT_FALSE(UserDefaults::showWelcome());
    EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::defaultInterface).isValid());
    EXPECT_FALSE(UserDefaults::getConf(PrefKey::remenberpass));
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::areacode).toString(), QStringLiteral("1002"));
}

TEST(UserDefaults, EmptyKeyIsRefused)
{
    if (!qEnvironmentVariableIsEmpty(kStep.toLatin1().constData()))
        GTEST_SKIP() << "child run";
    UserDefaults::saveValue(QStringLiteral("x"), QString());
    UserDefaults::saveConf(true, QString());
    EXPECT_FALSE(UserDefaults::loadValueForKey(QString()).isValid());
    EXPECT_FALSE(UserDefaults::getConf(QString()));
    // Nothing else appeared either.
    EXPECT_FALSE(UserDefaults::loadValueForKey(QStringLiteral("x")).isValid());
}

TEST(UserDefaultsStep, Run)
{
    const QString step = qEnvironmentVariable(kStep.toLatin1().constData());
    if (step.isEmpty())
        GTEST_SKIP() << "only as a step of another test";

    if (step == QLatin1String("first-run")) {
        EXPECT_TRUE(UserDefaults::showWelcome());
        EXPECT_FALSE(UserDefaults::showWelcome());
        UserDefaults::saveConf(true, PrefKey::remenberpass);
        UserDefaults::saveConf(false, PrefKey::isconnected);
        UserDefaults::saveValue(QStringLiteral("eth0"), PrefKey::defaultInterface);
        UserDefaults::saveValue(QStringLiteral("1001"), PrefKey::areacode);
        UserDefaults::saveValue(qint64(1718000000), PrefKey::lastUpDate);
        UserDefaults::saveValue(QStringLiteral("校园网"), PrefKey::lastDialType);
        UserDefaults::saveValue(kAreaConfig, QStringLiteral("1001"));
        return;
    }
    ASSERT_EQ(step, QLatin1String("second-run"));
    EXPECT_FALSE(UserDefaults::showWelcome());
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::time).toString(), QStringLiteral("sd"));
    // What the previous run stored, read back as its callers read it.
    EXPECT_TRUE(UserDefaults::getConf(PrefKey::remenberpass));
    EXPECT_TRUE(UserDefaults::loadValueForKey(PrefKey::isconnected).isValid());
    EXPECT_FALSE(UserDefaults::getConf(PrefKey::isconnected));
    EXPECT_FALSE(UserDefaults::getConf(PrefKey::autolog));
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::defaultInterface).toString(), QStringLiteral("eth0"));
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::lastUpDate).toLongLong(), 1718000000);
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::lastDialType).toString(), QStringLiteral("校园网"));
    EXPECT_EQ(UserDefaults::loadValueForKey(QStringLiteral("1001")).toMap(), kAreaConfig);
    // Changes for the next reader: an absent value removes the key.
    UserDefaults::saveValue(QVariant(), PrefKey::defaultInterface);
    UserDefaults::saveConf(false, PrefKey::remenberpass);
    UserDefaults::saveValue(QStringLiteral("1002"), PrefKey::areacode);
    EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::defaultInterface).isValid());
}
