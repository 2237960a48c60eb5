// Runs inside tests/rigs/keyring-session.sh: a real gnome-keyring on a private session bus.
#include "Util/keychain/Keychain.h"
#include "Util/userSecurityInfo.h"
#include "support/QtPrinters.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

namespace {

const QString kOtherService = QStringLiteral("org.dorvik.test.other");

QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

void expectUnavailable(const DVError &err, const char *what)
{
    EXPECT_EQ(err.domain, KeychainError::Domain) << what;
    EXPECT_EQ(err.localizedDescription, KeychainError::UnavailableText) << what;
    EXPECT_FALSE(err.localizedFailureReason.isEmpty()) << what;
}

// Removes whatever a test left under the services used here.
void wipe()
{
    auto kc = Keychain::platform();
    for (const QString &service : {userSecurityInfo::service, kOtherService}) {
        const auto names = kc->accounts(service, nullptr);
        ASSERT_TRUE(names.has_value());
        for (const QString &n : *names)
            ASSERT_TRUE(kc->remove(service, n, nullptr));
    }
}

class KeyringTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!qEnvironmentVariableIsEmpty("DORVIK_KEYCHAIN_RIG"))
            GTEST_SKIP() << "child run of another rig mode";
        wipe();
    }
    void TearDown() override { wipe(); }
};

} // namespace

TEST_F(KeyringTest, ItemsAreCreatedReplacedListedAndDeleted)
{
    auto kc = Keychain::platform();
    ASSERT_TRUE(kc->isAvailable());
    struct Step
    {
        QString account;
        QString password;
    };
    // The third step replaces the first item's password; a space, multibyte text and an
    // empty password all round-trip.
    const Step steps[] = {
        {s("alice"), s("first")},
        {s("张三"), s("密码 with spaces")},
        {s("alice"), s("second")},
        {s("bob"), QString()},
    };
    for (const Step &step : steps) {
        DVError err;
        ASSERT_TRUE(kc->save(userSecurityInfo::service, step.account, step.password, &err)) << stringWithError(err);
    }
    DVError err;
    auto names = kc->accounts(userSecurityInfo::service, &err);
    ASSERT_TRUE(names) << stringWithError(err);
    QStringList sorted = *names;
    sorted.sort();
    EXPECT_EQ(sorted, (QStringList{s("alice"), s("bob"), s("张三")}));

    const struct
    {
        QString account;
        std::optional<QString> password;
    } reads[] = {
        {s("alice"), s("second")},
        {s("张三"), s("密码 with spaces")},
        {s("bob"), QString()},
        {s("nobody"), std::nullopt},
    };
    for (const auto &r : reads) {
        DVError readErr;
        EXPECT_EQ(kc->password(userSecurityInfo::service, r.account, &readErr), r.password) << r.account.toStdString();
        EXPECT_TRUE(readErr.domain.isEmpty()) << r.account.toStdString();
    }

    // Deleting is per account and idempotent (services are kept apart: RememberedAccountIsTheLastListed).
    EXPECT_TRUE(kc->remove(userSecurityInfo::service, s("alice"), nullptr));
    EXPECT_TRUE(kc->remove(userSecurityInfo::service, s("alice"), nullptr));
    EXPECT_FALSE(kc->password(userSecurityInfo::service, s("alice"), nullptr));
    EXPECT_EQ(kc->accounts(userSecurityInfo::service, nullptr)->size(), 2);
}

TEST_F(KeyringTest, RememberedAccountIsTheLastListed)
{
    DVError err;
    const QMap<QString, QString> stored{{s("first"), s("p1")}, {s("second"), s("p2")}, {s("third"), s("p3")}};
    for (auto it = stored.begin(); it != stored.end(); ++it)
        ASSERT_TRUE(userSecurityInfo::saveUser(it.key(), it.value(), &err)) << stringWithError(err);
    // Items of another service never become the remembered account.
    ASSERT_TRUE(Keychain::platform()->save(kOtherService, s("stranger"), s("x"), nullptr));

    // Each round deletes the account that won; the next construction picks the new last one.
    for (int remaining = 3; remaining > 0; --remaining) {
        const auto listed = Keychain::platform()->accounts(userSecurityInfo::service, nullptr);
        ASSERT_TRUE(listed);
        ASSERT_EQ(listed->size(), remaining);
        const userSecurityInfo info(nullptr, &err);
        ASSERT_EQ(info.loadUser(), listed->last());
        EXPECT_EQ(info.loadPass(), stored.value(listed->last()));
        EXPECT_TRUE(userSecurityInfo::deleteSecurityInfoOfnName(std::nullopt, &err));
        ASSERT_EQ(Keychain::platform()->accounts(userSecurityInfo::service, nullptr)->size(), remaining);
        EXPECT_TRUE(userSecurityInfo::deleteSecurityInfoOfnName(info.loadUser(), &err));
    }
    // Nothing left: no account and no error.
    const userSecurityInfo gone(nullptr, &err);
    EXPECT_FALSE(gone.loadUser());
    EXPECT_FALSE(gone.loadPass());
    EXPECT_TRUE(err.domain.isEmpty()) << stringWithError(err);
}

// A store that cannot be used must say so: each mode runs this binary again in a rig of its
// own (see KeychainInRig below).
TEST(KeychainUnavailable, EveryBrokenStoreReportsAnError)
{
    if (!qEnvironmentVariableIsEmpty("DORVIK_KEYCHAIN_RIG"))
        GTEST_SKIP() << "child run";
    for (const char *mode : {"no-bus", "no-service", "missing", "locked"}) {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DORVIK_KEYCHAIN_RIG"), QString::fromLatin1(mode));
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QStringLiteral("/bin/sh"),
                    {TestSupport::sourceTestsDir() + QStringLiteral("/rigs/keyring-session.sh"),
                     QStringLiteral("--mode"), QString::fromLatin1(mode), QCoreApplication::applicationFilePath(),
                     QStringLiteral("--gtest_filter=KeychainInRig.*")});
        ASSERT_TRUE(child.waitForFinished(120000)) << mode;
        const QString out = QString::fromUtf8(child.readAll());
        EXPECT_EQ(child.exitCode(), 0) << mode << "\n" << out.toStdString();
        EXPECT_TRUE(out.contains(QStringLiteral("[  PASSED  ] 1 test"))) << mode << "\n" << out.toStdString();
        EXPECT_FALSE(out.contains(QStringLiteral("SKIPPED"))) << mode << "\n" << out.toStdString();
    }
}

TEST(KeychainInRig, WritesFailWithAnErrorAndReadsFindNothing)
{
    const QString mode = qEnvironmentVariable("DORVIK_KEYCHAIN_RIG");
    if (mode.isEmpty())
        GTEST_SKIP() << "only in a child rig";
    auto kc = Keychain::platform();

    DVError err;
    EXPECT_FALSE(userSecurityInfo::saveUser(s("alice"), s("pw"), &err));
    expectUnavailable(err, "save");

    // Reading either fails with an error or finds nothing; it never invents an account.
    DVError readErr;
    const userSecurityInfo info(nullptr, &readErr);
    EXPECT_FALSE(info.loadUser());
    EXPECT_FALSE(info.loadPass());
    if (mode == QLatin1String("no-bus") || mode == QLatin1String("no-service")) {
        expectUnavailable(readErr, "init");
        DVError e1, e2;
        EXPECT_FALSE(kc->accounts(userSecurityInfo::service, &e1));
        expectUnavailable(e1, "accounts");
        EXPECT_FALSE(kc->remove(userSecurityInfo::service, s("alice"), &e2));
        expectUnavailable(e2, "remove");
    }
}
