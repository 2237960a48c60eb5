#include "netList.h"

#include "MessageBox.h"

#include "Conf/UIConf.h"
#include "Util/Log.h"

#include <QCheckBox>
#include <QHeaderView>
#include <QPointer>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

netList::netList(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("网卡选择"));
    setModal(true);
    auto *layout = new QVBoxLayout(this);
    tableView = new QTableWidget(0, 2, this);
    tableView->setHorizontalHeaderLabels({QStringLiteral("网卡"), QStringLiteral("状态")});
    tableView->horizontalHeader()->setStretchLastSection(true);
    tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    tableView->setSelectionMode(QAbstractItemView::SingleSelection);
    tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    rememberChoiceBtn = new QCheckBox(QStringLiteral("记住选择"), this);
    rememberChoiceBtn->setChecked(UIConf::shared().ifRememberInterface());
    auto *commit = new QPushButton(QStringLiteral("确定"), this);
    commit->setDefault(true);
    layout->addWidget(tableView);
    layout->addWidget(rememberChoiceBtn);
    layout->addWidget(commit);
    connect(commit, &QPushButton::clicked, this, &netList::commitClick);
    resize(360, 240);
}

void netList::setNetArr(const std::vector<QVariantMap> &rows)
{
    tableView->setRowCount(int(rows.size()));
    for (int i = 0; i < int(rows.size()); ++i) {
        const QString status = rows[size_t(i)].value(QStringLiteral("status")).toString();
        tableView->setItem(i, 0, new QTableWidgetItem(rows[size_t(i)].value(QStringLiteral("name")).toString()));
        auto *statusItem = new QTableWidgetItem(status);
        if (status != QStringLiteral("已连接"))
            statusItem->setForeground(Qt::red);
        tableView->setItem(i, 1, statusItem);
    }
    if (!rows.empty())
        tableView->selectRow(0);
}

void netList::commitClick()
{
    // Return on the table reaches the default button as well: dial once.
    if (_committed)
        return;
    _committed = true;
    UIConf::shared().setRememberInterface(rememberChoiceBtn->isChecked());
    if (!rememberChoiceBtn->isChecked())
        UIConf::shared().setAutoLogin(false);
    const int row = tableView->currentRow();
    Q_EMIT dialRequested(_user, _pass, row < 0 ? quint64(0x7FFFFFFFFFFFFFFFULL) : quint64(row));
}

void netList::dialFinished(const DVError &error, bool failed)
{
    // The alert runs a nested event loop; this window may be gone when it returns.
    QPointer<netList> self(this);
    if (failed) {
        DVLOG() << "dial failed: " << error.domain << " " << error.code;
        MessageBox::show(
            this,
            {MessageBox::Style::Critical,
             QStringLiteral("错误"),
             QStringLiteral("错误号:%1").arg(error.code),
             QStringLiteral("%1\n%2\n%3").arg(error.domain, error.localizedDescription, error.localizedFailureReason),
             {QStringLiteral("确定"), QStringLiteral("设置")}});
    }
    if (self)
        accept();
}
