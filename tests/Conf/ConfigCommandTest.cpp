// "dorvik-cli config", run as the separate program a deployer runs.
#include "ConfTestSupport.h"

#include "Conf/ConfCrypt.h"
#include "Util/UserDefaults.h"
#include "support/TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

TestSupport::ProgramRun cli(const QStringList &args)
{
    return TestSupport::runProgram(QStringLiteral(DORVIK_CLI_PROGRAM), QStringList{QStringLiteral("config")} + args);
}

QStringList errLines(const TestSupport::ProgramRun &r)
{
    return QString::fromUtf8(r.err).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// The value that applies in `area`, resolved here from the plain source without the code
// under test.
std::optional<ordered_json> expectedValue(const ordered_json &source, const std::string &path, const std::string &area)
{
    const ordered_json *node = &source;
    size_t start = 0;
    for (size_t dot; (dot = path.find('.', start)) != std::string::npos; start = dot + 1)
        node = &node->at(path.substr(start, dot - start));
    node = &node->at(path.substr(start));
    if (!area.empty() && node->contains(area))
        return node->at(area);
    if (node->contains("default"))
        return node->at("default");
    return std::nullopt;
}

class ConfigCommandTest : public ::testing::Test
{
protected:
    void SetUp() override { resetPreferences(); }
};

TEST_F(ConfigCommandTest, GetResolvesTheRequestedOrRememberedArea)
{
    const ordered_json source = shippedSource();
    // One setting of each shape: nested link, hyphenated and underscored keys, a list, a switch.
    const std::vector<std::string> paths = {"heart.interval",   "accountrule.order",          "login.isQrcodeEnable",
                                            "app.website.host", "accountrule.timepin-prefix", "qrcode.timepin_prefix"};
    for (const char *area : {"1002", "1002:02:03:05:2", "no-such-area"})
        for (const std::string &path : paths) {
            SCOPED_TRACE(std::string(area) + " " + path);
            const auto r = cli(
                {QStringLiteral("get"), QStringLiteral("--area"), QLatin1String(area), QString::fromStdString(path)});
            const auto expected = expectedValue(source, path, area);
            EXPECT_EQ(r.exitCode == 0, expected.has_value()) << r.err.toStdString();
            if (expected) {
                EXPECT_EQ(ordered_json::parse(r.out.toStdString(), nullptr, false), *expected);
            }
        }

    // Without --area the area the user chose last applies.
    UserDefaults::saveValue(QStringLiteral("1002"), PrefKey::areacode);
    const auto r = cli({QStringLiteral("get"), QStringLiteral("heart.interval")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(ordered_json::parse(r.out.toStdString()), expectedValue(source, "heart.interval", "1002"));
}

TEST_F(ConfigCommandTest, GetReportsBadFilesAndRequestsInOneLine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    auto write = [&](const QString &name, const QByteArray &bytes) {
        EXPECT_TRUE(TestSupport::writeFile(dir.filePath(name), bytes));
        return dir.filePath(name);
    };
    ordered_json sparse = completeConfig();
    setPath(sparse, "heart.key", {{"1001", "k"}});

    const QString plain = write(QStringLiteral("plain.cfg"), "{\"app\": {}}");
    const QString sparseFile =
        write(QStringLiteral("sparse.cfg"), *ConfCrypt::encodeData(QByteArray::fromStdString(sparse.dump())));

    struct Case
    {
        const char *name;
        QStringList args;
        const char *mentioned;
    };
    const std::vector<Case> cases = {
        // Why a file is unreadable is Conf::fromFile's text (ConfCryptTest); one case shows it arrives.
        {"not encrypted", {QStringLiteral("--file"), plain, QStringLiteral("heart.key")}, "could not be decrypted"},
        {"no value for the area",
         {QStringLiteral("--file"), sparseFile, QStringLiteral("--area"), QStringLiteral("1002"),
          QStringLiteral("heart.key")},
         "no value"},
        {"unknown setting", {QStringLiteral("heart.timepin")}, "unknown setting"},
        {"section only", {QStringLiteral("heart")}, "unknown setting"},
        {"option without value", {QStringLiteral("heart.key"), QStringLiteral("--area")}, "needs a value"},
        {"nothing asked", {}, "usage"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto r = cli(QStringList{QStringLiteral("get")} + c.args);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_TRUE(r.out.isEmpty());
        ASSERT_FALSE(errLines(r).isEmpty());
        EXPECT_TRUE(errLines(r).first().contains(QLatin1String(c.mentioned))) << r.err.toStdString();
        if (std::string(c.name) != "nothing asked") {
            EXPECT_EQ(errLines(r).size(), 1) << r.err.toStdString();
        }
    }

    // The same sparse file answers for the area that has the value.
    const auto ok = cli({QStringLiteral("get"), QStringLiteral("--file"), sparseFile, QStringLiteral("--area"),
                         QStringLiteral("1001"), QStringLiteral("heart.key")});
    EXPECT_EQ(ok.exitCode, 0);
    EXPECT_EQ(ok.out, QByteArray("\"k\"\n"));
}

} // namespace
