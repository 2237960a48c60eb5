#include "checkUpdateViewController.h"

#include "Update/CheckUpdatePresenter.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

checkUpdateViewController::checkUpdateViewController(QWidget *parent)
    : checkUpdateViewController(std::make_unique<CheckUpdatePresenter>(), parent)
{}

checkUpdateViewController::checkUpdateViewController(std::unique_ptr<CheckUpdatePresenter> presenter, QWidget *parent)
    : QDialog(parent)
    , _presenter(std::move(presenter))
{
    setWindowTitle(QStringLiteral("检查更新"));
    setModal(true);
    setFixedSize(360, 170);

    _topView = new QWidget(this);
    _topView->setFixedHeight(36);
    _topView->setAutoFillBackground(true);
    QPalette header = _topView->palette();
    header.setColor(QPalette::Window, QColor(CheckUpdatePresenter::kHeaderRed, CheckUpdatePresenter::kHeaderGreen,
                                             CheckUpdatePresenter::kHeaderBlue));
    _topView->setPalette(header);

    _label = new QLabel(this);
    _label->setWordWrap(true);
    _label->setAlignment(Qt::AlignCenter);

    // Page 0: an indicator that always moves; page 1: the download's share; page 2: the question.
    _checkProgress = new QProgressBar(this);
    _checkProgress->setRange(0, 0);
    _checkProgress->setTextVisible(false);
    _downloadProgress = new QProgressBar(this);
    _downloadProgress->setRange(0, 100);
    auto *question = new QWidget(this);
    auto *buttons = new QHBoxLayout(question);
    _yesBtn = new QPushButton(QStringLiteral("是"), question);
    _noBtn = new QPushButton(QStringLiteral("否"), question);
    _yesBtn->setDefault(true);
    buttons->addStretch();
    buttons->addWidget(_noBtn);
    buttons->addWidget(_yesBtn);
    _tabview = new QStackedWidget(this);
    _tabview->addWidget(_checkProgress);
    _tabview->addWidget(_downloadProgress);
    _tabview->addWidget(question);
    _tabview->setFixedHeight(40);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 12);
    layout->addWidget(_topView);
    auto *body = new QVBoxLayout;
    body->setContentsMargins(16, 8, 16, 0);
    body->addWidget(_label);
    body->addWidget(_tabview);
    body->addStretch();
    layout->addLayout(body);

    connect(_yesBtn, &QPushButton::clicked, _presenter.get(), &CheckUpdatePresenter::yes);
    connect(_noBtn, &QPushButton::clicked, _presenter.get(), &CheckUpdatePresenter::no);
    connect(_presenter.get(), &CheckUpdatePresenter::changed, this, &checkUpdateViewController::refresh);
    connect(_presenter.get(), &CheckUpdatePresenter::progressChanged, this,
            [this](float percent) { _downloadProgress->setValue(qBound(0, int(percent), 100)); });
    connect(_presenter.get(), &CheckUpdatePresenter::closeRequested, this, &QDialog::close);
    refresh();
}

checkUpdateViewController::~checkUpdateViewController() = default;

void checkUpdateViewController::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    _presenter->viewDidAppear();
}

void checkUpdateViewController::refresh()
{
    _label->setText(_presenter->label());
    _tabview->setCurrentIndex(qBound(0, _presenter->page(), _tabview->count() - 1));
}
