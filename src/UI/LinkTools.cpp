#include "LinkTools.h"

#include "App/ClockGuard.h"
#include "App/DVAppHost.h"
#include "Util/ThreadHandoff.h"
#include "Util/UserDefaults.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QMainWindow>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

namespace {
using json = nlohmann::ordered_json;

const QString kRedialKey = QStringLiteral("autoRedial");

// Runs `work` on the controller's thread and hands its text to `done` on `context`'s thread.
void ask(DVAppHost *host, QObject *context, std::function<QString(DVApp &)> work, std::function<void(QString)> done)
{
    QPointer<QObject> target = context;
    host->post([target, work = std::move(work), done = std::move(done)](DVApp &app) {
        const QString text = work(app);
        if (target)
            ThreadHandoff::post(target.data(), [done, text] { done(text); });
    });
}

void showWarning(QMainWindow *window, const QString &text)
{
    window->statusBar()->showMessage(text);
    window->statusBar()->setToolTip(text);
}

// The clock check runs beside each dial the window starts; a time-based dial name the access
// server turned down gets the hint that the clock may be the cause.
void watchDials(DVAppHost *host, QMainWindow *window)
{
    QObject::connect(host, &DVAppHost::dialStateChanged, window, [host, window](qint64 state) {
        if (state == 3) {
            ClockGuard::check(ClockGuard::providerUrls(), Clock::system(), DVApp::timeBasedRule(), 2000, window,
                              [host, window](const ClockCheck &check) {
                                  host->post([j = check.toJson()](DVApp &app) { app.setClockCheck(j); });
                                  if (check.warn)
                                      showWarning(window, check.message);
                                  else if (check.checked)
                                      window->statusBar()->clearMessage();
                              });
        } else if (state == 5) {
            ask(
                host, window,
                [](DVApp &app) { return QString::fromStdString(app.diagnostics()["lastLinkEnd"]["cause"]); },
                [window](const QString &cause) {
                    if (cause == QLatin1String("refused") && DVApp::timeBasedRule())
                        showWarning(window, ClockGuard::refusalHint());
                });
        }
    });
}
} // namespace

namespace LinkTools {

void install(QMenu *menu, DVAppHost *host, QMainWindow *window)
{
    QAction *redial = menu->addAction(QStringLiteral("断线自动重拨"));
    redial->setCheckable(true);
    redial->setChecked(UserDefaults::getConf(kRedialKey));
    const auto apply = [host](bool on) { host->post([on](DVApp &app) { app.setRedialEnabled(on); }); };
    apply(redial->isChecked());
    QObject::connect(redial, &QAction::toggled, window, [apply](bool on) {
        UserDefaults::saveConf(on, kRedialKey);
        apply(on);
    });
    menu->addAction(QStringLiteral("诊断信息…"), window, [host, window] {
        auto *dialog = new DiagnosticsDialog(host, window);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->open();
    });
    watchDials(host, window);
}

void raise(QWidget *window)
{
    if (!window)
        return;
    window->show();
    window->setWindowState((window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window->raise();
    window->activateWindow();
}

} // namespace LinkTools

DiagnosticsDialog::DiagnosticsDialog(DVAppHost *host, QWidget *parent)
    : QDialog(parent)
    , _host(host)
    , _text(new QPlainTextEdit(this))
{
    setWindowTitle(QStringLiteral("诊断信息"));
    resize(520, 460);
    _text->setReadOnly(true);
    _text->setObjectName(QStringLiteral("diagnosticsText"));
    auto *buttons = new QDialogButtonBox(this);
    QPushButton *copy = buttons->addButton(QStringLiteral("复制诊断信息"), QDialogButtonBox::ActionRole);
    QPushButton *token = buttons->addButton(QStringLiteral("获取令牌"), QDialogButtonBox::ActionRole);
    QPushButton *again = buttons->addButton(QStringLiteral("刷新"), QDialogButtonBox::ActionRole);
    buttons->addButton(QStringLiteral("关闭"), QDialogButtonBox::RejectRole);
    connect(copy, &QPushButton::clicked, this, &DiagnosticsDialog::copyToClipboard);
    connect(token, &QPushButton::clicked, this, &DiagnosticsDialog::requestToken);
    connect(again, &QPushButton::clicked, this, &DiagnosticsDialog::refresh);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(_text);
    layout->addWidget(buttons);
    refresh();
}

QString DiagnosticsDialog::text() const
{
    return _token.isEmpty() ? _report : _report + QStringLiteral("\n\n令牌请求：\n") + _token;
}

void DiagnosticsDialog::refresh()
{
    ask(
        _host, this, [](DVApp &app) { return QString::fromStdString(app.diagnostics().dump(2)); },
        [this](const QString &report) {
            _report = report;
            _text->setPlainText(text());
        });
}

void DiagnosticsDialog::copyToClipboard()
{
    QApplication::clipboard()->setText(text());
}

void DiagnosticsDialog::requestToken()
{
    QPointer<DiagnosticsDialog> self = this;
    _token = QStringLiteral("请求中…");
    _text->setPlainText(text());
    _host->post([self](DVApp &app) {
        app.requestToken([self](const json &answer) {
            const QString shown = QString::fromStdString(answer.dump(2));
            if (self)
                ThreadHandoff::post(self.data(), [self, shown] {
                    if (!self)
                        return;
                    self->_token = shown;
                    self->refresh();
                });
        });
    });
}
