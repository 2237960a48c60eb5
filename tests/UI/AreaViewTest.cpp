// The area selection: lists, operators, area code, commit rules, and unusable area files.
#include "areaConfViewController.h"

#include "MessageBox.h"

#include "Conf/Conf.h"
#include "Util/UserDefaults.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QFile>
#include <QFrame>
#include <QPushButton>
#include <QSignalSpy>

namespace {

const QString demoTree = QStringLiteral(DORVIK_SOURCE_DIR "/resources/demo/area.cfg");

class AreaViewTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        UserDefaults::saveValue({}, PrefKey::areacode);
        Conf::setArea(QString());
        MessageBox::clearShown();
        MessageBox::setDefaultAnswer(0);
        view.setUpView(areaModel::fromFile(demoTree));
    }
    void TearDown() override { MessageBox::setDefaultAnswer(std::nullopt); }

    QComboBox *list(int level) const
    {
        return std::array<QComboBox *, 4>{view.provBtn, view.cityBtn, view.schoolBtn, view.collageBtn}[size_t(level)];
    }
    void choose(const std::vector<int> &path)
    {
        for (size_t level = 0; level < path.size(); ++level)
            list(int(level))->setCurrentIndex(path[level]);
    }
    QStringList alertTexts() const
    {
        QStringList texts;
        for (const MessageBox::Alert &alert : MessageBox::shown())
            texts << alert.informativeText;
        return texts;
    }

    areaConfViewController view;
};

TEST_F(AreaViewTest, CommitStoresTheAreaCodeOrAsks)
{
    struct Case
    {
        const char *name;
        std::vector<int> path; // index chosen in each list, top down
        QStringList operators; // the visible operator buttons; none means the box is hidden
        std::optional<int> operatorButton;
        QString code;  // stored on success
        QString alert; // shown instead
    };
    const QStringList three{QStringLiteral("电信"), QStringLiteral("联通"), QStringLiteral("移动")};
    const std::vector<Case> cases = {
        {"province alone", {0}, {}, {}, QStringLiteral("1001"), {}},
        {"college with operators, second chosen", {1, 0, 0, 0}, three, 1, QStringLiteral("1002:02:03:05:2"), {}},
        {"college with operators, none chosen", {1, 0, 0, 0}, three, {}, {}, QStringLiteral("请选择运营商")},
        {"college without operators", {1, 0, 0, 1}, {}, {}, QStringLiteral("1002:02:03:06"), {}},
        {"two operators, second chosen",
         {2, 0, 0, 1},
         {QStringLiteral("电信"), QStringLiteral("移动")},
         1,
         QStringLiteral("1003:01:01:02:3"),
         {}},
        {"nothing chosen", {}, {}, {}, {}, QStringLiteral("至少需要选择所在的省")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        choose(c.path);
        EXPECT_EQ(view.customBox->isHidden(), c.operators.isEmpty());
        QStringList operators;
        for (QPushButton *button : view.operatorBtn) {
            if (!button->isHidden())
                operators << button->text();
        }
        if (!c.operators.isEmpty()) {
            EXPECT_EQ(operators, c.operators);
        }
        if (c.operatorButton)
            view.operatorBtn[size_t(*c.operatorButton)]->click();
        QSignalSpy committed(&view, &areaConfViewController::committed);
        view.commitBtn->click();

        if (c.alert.isEmpty()) {
            EXPECT_TRUE(MessageBox::shown().empty());
            ASSERT_EQ(committed.size(), 1);
            EXPECT_EQ(committed.at(0).at(0).toString(), c.code);
            EXPECT_EQ(Conf::area(), c.code);
            EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::areacode).toString(), c.code);
        } else {
            EXPECT_EQ(alertTexts(), QStringList{c.alert});
            EXPECT_EQ(committed.size(), 0);
            EXPECT_FALSE(UserDefaults::loadValueForKey(PrefKey::areacode).isValid());
        }
    }
}

TEST_F(AreaViewTest, NewProvinceEmptiesTheListsBelowAndHidesTheOperators)
{
    choose({1, 0, 0});
    EXPECT_TRUE(view.customBox->isHidden()) << "no college chosen yet";
    choose({1, 0, 0, 0});
    view.operatorBtn[0]->click();
    ASSERT_FALSE(view.customBox->isHidden());

    view.provBtn->setCurrentIndex(0);
    EXPECT_TRUE(view.customBox->isHidden());
    EXPECT_EQ(view.cityBtn->count(), 2); // the new province's cities, none chosen
    EXPECT_EQ(view.cityBtn->currentIndex(), -1);
    EXPECT_EQ(view.schoolBtn->count(), 0);
    EXPECT_EQ(view.collageBtn->count(), 0);
    EXPECT_EQ(view.getAreaCode(), QStringLiteral("1001"));
}

// Bytes that are not a usable area tree: each gives an empty tree, never a crash.
TEST(AreaModelTest, UnusableTreesAreEmpty)
{
    QFile demo(demoTree);
    ASSERT_TRUE(demo.open(QIODevice::ReadOnly));
    const QByteArray full = demo.readAll();
    QByteArray deepItems = "{\"name\":\"x\"";
    for (int i = 0; i < 100; ++i)
        deepItems += ",\"item\":[{\"name\":\"x\"";
    for (int i = 0; i < 100; ++i)
        deepItems += "}]";
    deepItems += "}";

    const std::vector<std::pair<const char *, QByteArray>> cases = {
        {"empty file", QByteArray()},
        {"truncated", full.left(full.size() / 2)},
        {"binary", QByteArray("\xff\xfe\x00\x01{[", 6)},
        {"array root", "[{\"name\":\"a\",\"code\":\"1\"}]"},
        {"text root", "\"area\""},
        {"number name", "{\"item\":[{\"name\":5,\"code\":\"1\"}]}"},
        {"item not an array", "{\"item\":{\"name\":\"a\"}}"},
        {"child not an object", "{\"item\":[\"a\"]}"},
        {"wrong kind in a later branch", "{\"item\":[{\"name\":\"ok\"},{\"item\":[{\"code\":[]}]}]}"},
        {"nested beyond the bound", deepItems},
        {"nested beyond the parser", QByteArray(200000, '[')},
    };
    for (const auto &[name, data] : cases) {
        SCOPED_TRACE(name);
        QString error;
        const areaModel tree = areaModel::fromData(data, &error);
        EXPECT_EQ(tree.numberOfItemsInComboBox(), 0);
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST_F(AreaViewTest, MalformedTreeLeavesTheListsEmptyAndCommitAsksForAProvince)
{
    view.setUpView(areaModel::fromData("{\"name\": \"全部\", \"item\": ["));
    for (int level = 0; level < 4; ++level)
        EXPECT_EQ(list(level)->count(), 0) << level;
    view.commitBtn->click();
    EXPECT_EQ(alertTexts(), QStringList{QStringLiteral("至少需要选择所在的省")});
}

} // namespace
