#include "Util/DVUtils.h"
#include "Util/HexAdditions.h"

#include <gtest/gtest.h>

TEST(Smoke, Md5OfEmpty)
{
    EXPECT_EQ(DVUtils::md5OfString(QString()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
}
