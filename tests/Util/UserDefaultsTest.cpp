// The preference store. Other processes reading what this one wrote is covered by the
// command-line tests (dorvik-cli config get reads the area chosen here).
#include "Util/UserDefaults.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

TEST(UserDefaults, ValuesSwitchesAndTheWelcomeMarker)
{
    for (const QString &key : {PrefKey::isconnected, PrefKey::areacode, QStringLiteral("1001")}) {
        EXPECT_FALSE(UserDefaults::loadValueForKey(key).isValid()) << key;
        EXPECT_FALSE(UserDefaults::getConf(key)) << key;
    }
    // The welcome is shown once per installation.
    EXPECT_TRUE(UserDefaults::showWelcome());
    EXPECT_FALSE(UserDefaults::showWelcome());
    EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::time).toString(), QStringLiteral("sd"));

    // A switch saved off is still a stored value; a map comes back whole.
    const QVariantMap area{{QStringLiteral("host"), QStringLiteral("10.0.0.1")}, {QStringLiteral("port"), 8080}};
    UserDefaults::saveConf(false, PrefKey::isconnected);
    UserDefaults::saveValue(QStringLiteral("校园网"), PrefKey::lastDialType);
    UserDefaults::saveValue(area, QStringLiteral("1001"));
    EXPECT_TRUE(UserDefaults::loadValueForKey(PrefKey::isconnected).isValid());
    EXPECT_FALSE(UserDefaults::getConf(PrefKey::isconnected));
    EXPECT_EQ(UserDefaults::loadValueForKey(QStringLiteral("1001")).toMap(), area);

    // An absent value removes the key; an empty key is refused.
    UserDefaults::saveValue(QVariant(), PrefKey::lastDialType);
    EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::lastDialType).isValid());
    UserDefaults::saveValue(QStringLiteral("x"), QString());
    UserDefaults::saveConf(true, QString());
    EXPECT_FALSE(UserDefaults::loadValueForKey(QString()).isValid());
    EXPECT_FALSE(UserDefaults::getConf(QString()));
}
