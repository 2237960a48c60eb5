// Which files are accepted: every setting present and keyed by area, or nothing at all.
#include "ConfTestSupport.h"

#include <gtest/gtest.h>

using namespace ConfTest;

namespace {

// A rejected file: no configuration, and exactly one log line that names what is wrong.
void expectRejected(const ordered_json &root, const QString &mentioned)
{
    LogCapture log;
    EXPECT_EQ(load(root), nullptr);
    const QStringList lines = log.lines();
    ASSERT_EQ(lines.size(), 1) << lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(lines.first().contains(mentioned)) << lines.first().toStdString();
}

TEST(ConfSchema, CompleteAndShippedFilesLoadSilently)
{
    Conf::setArea(QString());
    for (const ordered_json &root : {completeConfig(), shippedSource()}) {
        LogCapture log;
        EXPECT_NE(load(root), nullptr);
        EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(QLatin1Char('\n')).toStdString();
    }
    // Extra keys and any kind of entry are accepted.
    ordered_json root = completeConfig();
    root["user"] = {{"defaultInterface", "eth9"}};
    root["unknown"] = 1;
    setPath(root, "heart.extra", {{"default", 1}});
    setPath(root, "heart.interval", {{"default", 20}, {"1001", nullptr}, {"1002", {1, 2}}});
    setPath(root, "tab.url", ordered_json::object()); // no entry at all is still an object
    EXPECT_NE(load(root), nullptr);
}

TEST(ConfSchema, OneMissingOrMistypedSettingOrSectionRejectsTheWholeFile)
{
    QStringList sections;
    for (const QString &path : Conf::fieldPaths()) {
        SCOPED_TRACE(path.toStdString());
        sections << path.section(QLatin1Char('.'), 0, -2);
        ordered_json root = completeConfig();
        erasePath(root, path.toStdString());
        expectRejected(root, path);
        // Every setting must be an object keyed by area.
        for (const ordered_json &wrong : {ordered_json("text"), ordered_json::array({"a"}), ordered_json(nullptr)}) {
            root = completeConfig();
            setPath(root, path.toStdString(), wrong);
            expectRejected(root, path);
        }
    }
    sections.removeDuplicates();
    EXPECT_GE(sections.size(), 14);
    for (const QString &section : sections) {
        SCOPED_TRACE(section.toStdString());
        ordered_json root = completeConfig();
        erasePath(root, section.toStdString());
        expectRejected(root, section);
        setPath(root, section.toStdString(), "http://example.com");
        expectRejected(root, section);
    }
}

TEST(ConfSchema, TextThatIsNoConfigurationObjectIsRejected)
{
    for (const char *text : {"", "{", "not json", "[]", "\"text\"", "42", "null", "{\"app\": }"}) {
        SCOPED_TRACE(text);
        LogCapture log;
        EXPECT_EQ(Conf::fromJson(QByteArray(text)), nullptr);
        EXPECT_EQ(log.lines().size(), 1);
    }
    // With somewhere to put it, the description is handed back and nothing is logged.
    LogCapture log;
    QString error;
    EXPECT_EQ(Conf::fromJson("[]", &error), nullptr);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_TRUE(log.lines().isEmpty());
}

} // namespace
