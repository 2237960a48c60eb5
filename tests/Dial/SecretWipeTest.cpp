// The secret agent's copy of the password: gone from memory, in every copy handed out from it,
// once the dial no longer needs it; the caller's own string is left alone.

#include "Dial/networkmanager/NMSecretAgent.h"

#include <gtest/gtest.h>

namespace {

TEST(SecretWipe, ForgettingOverwritesEveryCopyOfTheAgentsPassword)
{
    const QString uuid = QStringLiteral("6f1c2f0e-dorvik");
    const QString typed = QString::fromUtf8("s3cret-pass");
    for (const bool byNextOffer : {false, true}) {
        NMSecretAgent agent;
        agent.offer(uuid, typed);
        // What NetworkManager is answered with shares the agent's buffer.
        const QString answered = agent.secretsFor(uuid, QStringLiteral("pppoe"))
                                     .value(QStringLiteral("pppoe"))
                                     .value(QStringLiteral("password"))
                                     .toString();
        ASSERT_EQ(answered, typed);
        EXPECT_TRUE(agent.secretsFor(uuid, QStringLiteral("802-1x")).isEmpty());

        if (byNextOffer)
            agent.offer(QStringLiteral("another-profile"), QStringLiteral("other"));
        else
            agent.forget(uuid);
        EXPECT_FALSE(agent.holds(uuid));
        EXPECT_EQ(answered, QString(typed.size(), QChar(0))) << (byNextOffer ? "next offer" : "forget");
        EXPECT_EQ(typed, QStringLiteral("s3cret-pass"));
    }
}

} // namespace
