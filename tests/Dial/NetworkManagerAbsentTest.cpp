// The dialing layer when the system bus has no NetworkManager on it.

#include "Dial/PPPoE.h"
#include "Dial/PPPoEPlatformFactory.h"

#include <gtest/gtest.h>

TEST(NMAbsent, DialFailsWithError0AndSaysWhy)
{
    const QString skip = qEnvironmentVariable("DORVIK_NM_RIG_SKIP");
    if (!skip.isEmpty())
        GTEST_SKIP() << skip.toStdString();
    if (qEnvironmentVariableIsEmpty("DBUS_SYSTEM_BUS_ADDRESS"))
        GTEST_SKIP() << "run through tests/Dial/rig/bus-without-nm.sh (it provides a bus without NetworkManager)";

    ASSERT_EQ(PPPoEPlatformFactory::defaultName(), QStringLiteral("networkmanager"));
    PPPoE pppoe(PPPoEPlatformFactory::create());
    EXPECT_TRUE(pppoe.getInterfaceList().empty());
    EXPECT_FALSE(pppoe.getStatusOfInterface(QStringLiteral("eth0")));
    DVError error;
    EXPECT_FALSE(pppoe.dialWithUserName(QStringLiteral("u"), QStringLiteral("p"), 0, &error));
    EXPECT_EQ(error.domain, QStringLiteral("PPPoE"));
    EXPECT_EQ(error.code, 0);
    EXPECT_EQ(error.localizedDescription, QStringLiteral("获取权限失败"));
    EXPECT_TRUE(error.localizedFailureReason.contains(QStringLiteral("NetworkManager is not running")))
        << error.localizedFailureReason.toStdString();
    EXPECT_FALSE(pppoe.stopConn());
    EXPECT_EQ(pppoe.getIP(), std::nullopt);
}
