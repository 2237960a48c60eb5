// The interface choice: its table, the remember box, what a confirm asks for, and the error
// alert with its way to the network settings.
#include "netList.h"

#include "MessageBox.h"

#include "App/DVApp.h"
#include "Conf/UIConf.h"
#include "support/TestData.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

const std::vector<QVariantMap> twoInterfaces = {
    {{QStringLiteral("name"), QStringLiteral("有线网卡 eth0")}, {QStringLiteral("status"), QStringLiteral("已连接")}},
    {{QStringLiteral("name"), QStringLiteral("无线网卡 wlan0")}, {QStringLiteral("status"), QStringLiteral("未连接")}},
};

class NetListTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        MessageBox::clearShown();
        MessageBox::setDefaultAnswer(0);
    }
    void TearDown() override
    {
        MessageBox::setDefaultAnswer(std::nullopt);
        MessageBox::setNextAnswers({});
    }
    static std::unique_ptr<netList> open(bool rememberSetting = false)
    {
        UIConf::shared().setRememberInterface(rememberSetting);
        auto view = std::make_unique<netList>();
        view->setUser(QStringLiteral("alice"));
        view->setPass(QStringLiteral("secret"));
        view->setNetArr(twoInterfaces);
        view->show();
        return view;
    }
};

TEST_F(NetListTest, ShowsTheInterfacesWithTheFirstSelected)
{
    for (const bool remember : {false, true}) {
        const auto view = open(remember);
        EXPECT_EQ(view->rememberChoiceBtn->isChecked(), remember);
        ASSERT_EQ(view->tableView->rowCount(), 2);
        EXPECT_EQ(view->tableView->item(1, 0)->text(), QStringLiteral("无线网卡 wlan0"));
        EXPECT_EQ(view->tableView->selectionModel()->selectedRows().value(0).row(), 0);
        EXPECT_NE(view->tableView->item(0, 1)->foreground().color(), QColor(Qt::red));
        EXPECT_EQ(view->tableView->item(1, 1)->foreground().color(), QColor(Qt::red));
    }
}

TEST_F(NetListTest, ConfirmStoresTheBoxAndAsksToDialTheSelectedRow)
{
    struct Case
    {
        const char *name;
        bool box;
        int row; // -1: no row selected
        bool returnKey;
        quint64 index;
    };
    const std::vector<Case> cases = {
        {"box off, first row, Return", false, 0, true, 0},
        {"box on, second row, button", true, 1, false, 1},
        {"box off, second row, Return", false, 1, true, 1},
        {"no row selected", true, -1, false, DVApp::NotFound},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        UIConf::shared().setAutoLogin(true);
        const auto view = open(!c.box);
        view->rememberChoiceBtn->setChecked(c.box);
        if (c.row < 0)
            view->tableView->clearSelection();
        else
            view->tableView->selectRow(c.row);
        QSignalSpy dial(view.get(), &netList::dialRequested);
        if (c.returnKey)
            QTest::keyClick(view->tableView, Qt::Key_Return);
        else
            view->commitBtn->click();
        ASSERT_EQ(dial.size(), 1);
        EXPECT_EQ(dial.at(0).at(0).toString(), QStringLiteral("alice"));
        EXPECT_EQ(dial.at(0).at(1).toString(), QStringLiteral("secret"));
        EXPECT_EQ(dial.at(0).at(2).toULongLong(), c.index);
        EXPECT_EQ(UIConf::shared().ifRememberInterface(), c.box);
        // A successful dial does not bring automatic log-in back without a remembered interface.
        view->dialFinished(DVError(), false);
        EXPECT_EQ(UIConf::shared().ifAutoLogin(), c.box);
        EXPECT_TRUE(MessageBox::shown().empty());
        EXPECT_FALSE(view->isVisible());
        EXPECT_EQ(view->result(), QDialog::Accepted);
    }
}

TEST_F(NetListTest, FailedDialShowsTheErrorThenCloses)
{
    QTemporaryDir bin;
    const QString marker = bin.filePath(QStringLiteral("opened"));
    const QString tool = bin.filePath(QStringLiteral("nm-connection-editor"));
    struct Case
    {
        const char *name;
        int answer; // -1: a real box on the screen, closed as a window is
        bool toolInstalled;
        QStringList followUp; // informative texts of the alerts after the error
    };
    const std::vector<Case> cases = {
        {"closing the box is 确定, not 设置", -1, false, {}},
        {"设置 with a settings tool", 1, true, {}},
        {"设置 without a settings tool",
         1,
         false,
         {QStringLiteral("没有找到网络设置工具，请安装 nm-connection-editor，或在桌面的系统设置中打开网络设置。")}},
    };
    const QByteArray savedPath = qgetenv("PATH");
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        QFile::remove(marker);
        QFile::remove(tool);
        if (c.toolInstalled) {
            ASSERT_TRUE(TestSupport::writeFile(tool, "#!/bin/sh\necho opened > '" + marker.toUtf8() + "'\n", true));
        }
        qputenv("PATH", bin.path().toUtf8());
        const auto view = open();
        QTimer closer;
        if (c.answer < 0) {
            MessageBox::setDefaultAnswer(std::nullopt);
            QObject::connect(&closer, &QTimer::timeout, [] {
                if (QWidget *box = QApplication::activeModalWidget())
                    box->close();
            });
            closer.start(20);
        } else {
            MessageBox::setNextAnswers({c.answer});
        }
        view->commitBtn->click();
        view->dialFinished(DVError(QStringLiteral("PPPoE"), 20, QStringLiteral("网卡不可用"),
                                   QStringLiteral("无线网卡 wlan0: 未连接")),
                           true);
        qputenv("PATH", savedPath);

        ASSERT_EQ(MessageBox::shown().size(), 1 + size_t(c.followUp.size()));
        const MessageBox::Alert &alert = MessageBox::shown().front();
        EXPECT_EQ(alert.style, MessageBox::Style::Critical);
        EXPECT_EQ(alert.buttons, QStringList({QStringLiteral("确定"), QStringLiteral("设置")}));
        EXPECT_EQ(alert.messageText, QStringLiteral("错误号:20"));
        EXPECT_EQ(alert.informativeText, QStringLiteral("PPPoE\n网卡不可用\n无线网卡 wlan0: 未连接"));
        for (qsizetype i = 0; i < c.followUp.size(); ++i)
            EXPECT_EQ(MessageBox::shown()[size_t(i + 1)].informativeText, c.followUp[i]);
        if (c.answer == 1 && c.toolInstalled) {
            EXPECT_TRUE(QTest::qWaitFor([&] { return QFile::exists(marker); }, 5000));
        }
        EXPECT_FALSE(view->isVisible());
    }
}

TEST(NetworkSettingsTest, PrefersTheRunningDesktopsTool)
{
    const auto data = TestData::load("ui.json"); // the loop must not outlive the document
    for (const auto &c : data.at("networkSettings")) {
        SCOPED_TRACE(c.dump());
        QStringList installed, launched;
        for (const auto &program : c.at("installed"))
            installed << QString::fromStdString(program);
        const NetworkSettings settings(
            [&](const QString &program) {
                return installed.contains(program) ? QStringLiteral("/usr/bin/") + program : QString();
            },
            [&](const QString &program, const QStringList &) {
                launched << program;
                return true;
            },
            TestData::text(c, "desktop"));
        const QString expected = TestData::text(c, "opens"); // empty: none
        EXPECT_EQ(settings.open(),
                  expected.isEmpty() ? NetworkSettings::Outcome::NotInstalled : NetworkSettings::Outcome::Opened);
        EXPECT_EQ(launched, expected.isEmpty() ? QStringList() : QStringList{QStringLiteral("/usr/bin/") + expected});
    }
}

} // namespace
