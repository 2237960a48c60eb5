// The area selection: lists, operators, area code, commit rules, and unusable area files.
#include "areaConfViewController.h"

#include "MessageBox.h"

#include "Conf/Conf.h"
#include "Util/UserDefaults.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

#include <QComboBox>
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
    const auto data = TestData::load("ui.json"); // the loop must not outlive the document
    for (const auto &c : data.at("areaCommits")) {
        SCOPED_TRACE(c.dump());
        SetUp();
        choose(c.at("path").get<std::vector<int>>());
        QStringList expectedOperators, operators;
        for (const auto &o : c.at("operators"))
            expectedOperators << QString::fromStdString(o);
        EXPECT_EQ(view.customBox->isHidden(), expectedOperators.isEmpty());
        for (QPushButton *button : view.operatorBtn) {
            if (!button->isHidden())
                operators << button->text();
        }
        if (!expectedOperators.isEmpty()) {
            EXPECT_EQ(operators, expectedOperators);
        }
        if (c.contains("operatorButton"))
            view.operatorBtn[c.at("operatorButton").get<size_t>()]->click();
        const QString code = TestData::text(c, "code"), alert = TestData::text(c, "alert");
        QSignalSpy committed(&view, &areaConfViewController::committed);
        view.commitBtn->click();

        if (alert.isEmpty()) {
            EXPECT_TRUE(MessageBox::shown().empty());
            ASSERT_EQ(committed.size(), 1);
            EXPECT_EQ(committed.at(0).at(0).toString(), code);
            EXPECT_EQ(Conf::area(), code);
            EXPECT_EQ(UserDefaults::loadValueForKey(PrefKey::areacode).toString(), code);
        } else {
            EXPECT_EQ(alertTexts(), QStringList{alert});
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
    QByteArray deepItems = "{\"name\":\"x\"";
    for (int i = 0; i < 100; ++i)
        deepItems += ",\"item\":[{\"name\":\"x\"";
    for (int i = 0; i < 100; ++i)
        deepItems += "}]";
    deepItems += "}";

    const std::vector<std::pair<const char *, QByteArray>> cases = {
        {"truncated", "{\"name\":\"x\",\"item\":["},
        {"array root", "[{\"name\":\"a\",\"code\":\"1\"}]"},
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
