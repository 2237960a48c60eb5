// "dorvik-cli config", run as the separate program a deployer runs.
#include "ConfTestSupport.h"

#include "Conf/ConfCrypt.h"
#include "Util/UserDefaults.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

struct CliRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QStringList errLines() const { return QString::fromUtf8(err).split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
};

CliRun cli(const QStringList &args, const QByteArray &input = QByteArray())
{
    QProcess p;
    p.start(QStringLiteral(DORVIK_CLI_PROGRAM), QStringList{QStringLiteral("config")} + args);
    EXPECT_TRUE(p.waitForStarted());
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(60000));
    CliRun r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
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

TEST_F(ConfigCommandTest, EncryptThenDecryptGivesTheInputBack)
{
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary.append(static_cast<char>(i % 256));
    const std::vector<QByteArray> inputs = {
        QByteArray(), QByteArray("{}"),        QByteArray::fromStdString(shippedSource().dump(2)),
        binary,       QByteArray(100000, 'x'),
    };
    for (const QByteArray &input : inputs) {
        SCOPED_TRACE(input.size());
        const CliRun enc = cli({QStringLiteral("encrypt")}, input);
        ASSERT_EQ(enc.exitCode, 0) << enc.err.toStdString();
        EXPECT_NE(enc.out, input);
        // The program uses the same built-in key as the library.
        EXPECT_EQ(enc.out, ConfCrypt::encodeData(input));
        const CliRun dec = cli({QStringLiteral("decrypt")}, enc.out);
        ASSERT_EQ(dec.exitCode, 0) << dec.err.toStdString();
        EXPECT_EQ(dec.out, input);
        EXPECT_TRUE(dec.err.isEmpty());
    }
}

TEST_F(ConfigCommandTest, InputThatDoesNotDecryptIsReportedInOneLine)
{
    const std::vector<QByteArray> inputs = {QByteArray(), QByteArray("{\"plain\": true}"), QByteArray(33, 'a')};
    for (const QByteArray &input : inputs) {
        SCOPED_TRACE(input.toStdString());
        const CliRun r = cli({QStringLiteral("decrypt")}, input);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_EQ(r.errLines().size(), 1) << r.err.toStdString();
    }
}

TEST_F(ConfigCommandTest, GetPrintsShippedSettingsAsJson)
{
    const ordered_json source = shippedSource();
    ASSERT_TRUE(source.is_object());
    // One setting of each shape: nested link, hyphenated and underscored keys, a list, a
    // switch, a plain text. Every key's mapping is checked in-process as well.
    const std::vector<std::string> paths = {"app.website.host",  "accountrule.timepin-prefix", "qrcode.timepin_prefix",
                                            "accountrule.order", "login.ifQrCodeOnly",         "sms.host"};
    for (const std::string &path : paths) {
        SCOPED_TRACE(path);
        const CliRun r = cli({QStringLiteral("get"), QString::fromStdString(path)});
        const auto expected = expectedValue(source, path, "");
        if (!expected) {
            EXPECT_NE(r.exitCode, 0);
            continue;
        }
        ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
        EXPECT_EQ(ordered_json::parse(r.out.toStdString()), *expected);
    }
}

TEST_F(ConfigCommandTest, GetResolvesTheRequestedOrRememberedArea)
{
    const ordered_json source = shippedSource();
    const std::vector<std::string> paths = {"heart.interval", "accountrule.order", "login.isQrcodeEnable"};
    for (const char *area : {"1001", "1002", "1003", "1002:02:03:05:2", "no-such-area"})
        for (const std::string &path : paths) {
            SCOPED_TRACE(std::string(area) + " " + path);
            const CliRun r = cli(
                {QStringLiteral("get"), QStringLiteral("--area"), QLatin1String(area), QString::fromStdString(path)});
            ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
            EXPECT_EQ(ordered_json::parse(r.out.toStdString()), expectedValue(source, path, area));
        }

    // Without --area the area the user chose last applies.
    UserDefaults::saveValue(QStringLiteral("1002"), PrefKey::areacode);
    const CliRun r = cli({QStringLiteral("get"), QStringLiteral("heart.interval")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(ordered_json::parse(r.out.toStdString()), expectedValue(source, "heart.interval", "1002"));
}

TEST_F(ConfigCommandTest, GetReportsBadFilesAndRequestsInOneLine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    auto write = [&](const QString &name, const QByteArray &bytes) {
        QFile f(dir.filePath(name));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        return f.fileName();
    };
    ordered_json incomplete = completeConfig();
    erasePath(incomplete, "heart.key");
    ordered_json sparse = completeConfig();
    setPath(sparse, "heart.key", {{"1001", "k"}});

    const QString plain = write(QStringLiteral("plain.cfg"), "{\"app\": {}}");
    const QString broken =
        write(QStringLiteral("broken.cfg"), *ConfCrypt::encodeData(QByteArray::fromStdString(incomplete.dump())));
    const QString sparseFile =
        write(QStringLiteral("sparse.cfg"), *ConfCrypt::encodeData(QByteArray::fromStdString(sparse.dump())));

    struct Case
    {
        const char *name;
        QStringList args;
        const char *mentioned;
    };
    const std::vector<Case> cases = {
        {"missing file",
         {QStringLiteral("--file"), dir.filePath(QStringLiteral("none.cfg")), QStringLiteral("heart.key")},
         "could not be read"},
        {"not encrypted", {QStringLiteral("--file"), plain, QStringLiteral("heart.key")}, "could not be decrypted"},
        {"incomplete", {QStringLiteral("--file"), broken, QStringLiteral("tab.url")}, "heart.key"},
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
        const CliRun r = cli(QStringList{QStringLiteral("get")} + c.args);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_TRUE(r.out.isEmpty());
        ASSERT_FALSE(r.errLines().isEmpty());
        EXPECT_TRUE(r.errLines().first().contains(QLatin1String(c.mentioned))) << r.err.toStdString();
        if (std::string(c.name) != "nothing asked") {
            EXPECT_EQ(r.errLines().size(), 1) << r.err.toStdString();
        }
    }

    // The same sparse file answers for the area that has the value.
    const CliRun ok = cli({QStringLiteral("get"), QStringLiteral("--file"), sparseFile, QStringLiteral("--area"),
                           QStringLiteral("1001"), QStringLiteral("heart.key")});
    EXPECT_EQ(ok.exitCode, 0);
    EXPECT_EQ(ok.out, QByteArray("\"k\"\n"));
}

} // namespace
