#include "netList.h"

#include <QPointer>

#include "MessageBox.h"

#include "App/DVApp.h"
#include "Conf/UIConf.h"
#include "Util/Log.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {
const QString connectedText = QStringLiteral("已连接");
}

netList::netList(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("网卡选择"));
    setModal(true);
    resize(360, 240);

    auto *layout = new QVBoxLayout(this);
    tableView = new QTableWidget(0, 2, this);
    tableView->setObjectName(QStringLiteral("tableView"));
    tableView->setHorizontalHeaderLabels({QStringLiteral("网卡"), QStringLiteral("状态")});
    tableView->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    tableView->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    tableView->verticalHeader()->hide();
    tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    tableView->setSelectionMode(QAbstractItemView::SingleSelection);
    tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tableView->setAlternatingRowColors(false);
    tableView->setShowGrid(false);
    QPalette palette = tableView->palette();
    palette.setColor(QPalette::Base, Qt::white);
    tableView->setPalette(palette);
    layout->addWidget(tableView);

    auto *bottom = new QHBoxLayout;
    rememberChoiceBtn = new QCheckBox(QStringLiteral("记住选择"), this);
    rememberChoiceBtn->setObjectName(QStringLiteral("rememberChoiceBtn"));
    rememberChoiceBtn->setChecked(UIConf::shared().ifRememberInterface());
    bottom->addWidget(rememberChoiceBtn);
    bottom->addStretch(1);
    commitBtn = new QPushButton(QStringLiteral("确定"), this);
    commitBtn->setObjectName(QStringLiteral("commitBtn"));
    // The default button: Return on the selected row confirms.
    commitBtn->setDefault(true);
    bottom->addWidget(commitBtn);
    layout->addLayout(bottom);

    connect(commitBtn, &QPushButton::clicked, this, &netList::commitClick);
    connect(tableView, &QTableWidget::cellDoubleClicked, this, &netList::commitClick);
}

void netList::setNetArr(const std::vector<QVariantMap> &netArr)
{
    _netArr = netArr;
    tableView->setRowCount(int(_netArr.size()));
    for (int row = 0; row < int(_netArr.size()); ++row) {
        const QVariantMap &entry = _netArr[size_t(row)];
        tableView->setItem(row, 0, new QTableWidgetItem(entry.value(QStringLiteral("name")).toString()));
        const QString status = entry.value(QStringLiteral("status")).toString();
        auto *statusItem = new QTableWidgetItem(status);
        if (status != connectedText)
            statusItem->setForeground(Qt::red);
        tableView->setItem(row, 1, statusItem);
    }
    if (!_netArr.empty())
        tableView->selectRow(0);
    tableView->setFocus();
}

void netList::commitClick()
{
    // One dial per window: a second Return or click while the first is under way is ignored.
    if (_dialing)
        return;
    const bool remember = rememberChoiceBtn->isChecked();
    UIConf::shared().setRememberInterface(remember);
    // Automatic log-in dials the remembered interface; without one it cannot run.
    if (!remember)
        UIConf::shared().setAutoLogin(false);

    const QModelIndexList rows = tableView->selectionModel()->selectedRows();
    const quint64 index = rows.isEmpty() ? DVApp::NotFound : quint64(rows.first().row());
    _dialing = true;
    commitBtn->setEnabled(false);
    Q_EMIT dialRequested(_user, _pass, index);
}

void netList::dialFinished(const DVError &error, bool failed)
{
    // The alert runs a nested event loop, during which the view that owns this window may be
    // replaced and this window deleted with it.
    const QPointer<netList> self(this);
    if (failed) {
        DVLOG() << "dial failed, domain: " << error.domain << ", localizedDescription: " << error.localizedDescription
                << ", code: " << error.code;
        setAlert(QStringLiteral("确定"), QStringLiteral("错误号:%1").arg(error.code),
                 error.domain + QLatin1Char('\n') + error.localizedDescription + QLatin1Char('\n')
                     + error.localizedFailureReason);
        if (!self)
            return;
    }
    _dialing = false;
    commitBtn->setEnabled(true);
    accept();
}

void netList::reject()
{
    if (!_dialing)
        QDialog::reject();
}

void netList::setAlert(const QString &buttonTitle, const QString &messageText, const QString &informativeText)
{
    const int answer = MessageBox::show(this, {MessageBox::Style::Critical,
                                               QStringLiteral("错误"),
                                               messageText,
                                               informativeText,
                                               {buttonTitle, QStringLiteral("设置")}});
    if (answer != 1)
        return;
    switch (_settings.open()) {
    case NetworkSettings::Outcome::Opened:
        break;
    case NetworkSettings::Outcome::NotInstalled:
        MessageBox::information(this, QStringLiteral("提示"), QStringLiteral("提示"),
                                QStringLiteral("没有找到网络设置工具，请安装 nm-connection-editor，"
                                               "或在桌面的系统设置中打开网络设置。"));
        break;
    case NetworkSettings::Outcome::LaunchFailed:
        MessageBox::information(this, QStringLiteral("提示"), QStringLiteral("提示"),
                                QStringLiteral("无法打开网络设置，请在桌面的系统设置中打开。"));
        break;
    }
}
