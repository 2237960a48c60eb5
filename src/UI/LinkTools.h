#pragma once

#include <QDialog>

class DVAppHost;
class QMainWindow;
class QMenu;
class QPlainTextEdit;

// What the window offers for a link a person leaves running: the "断线自动重拨" switch (off
// unless the user turns it on; remembered), the diagnostics page, and the clock guard's
// warning in the window's status line.
namespace LinkTools {

// Adds "断线自动重拨" and "诊断信息…" to `menu`, applies the remembered redial switch, and
// starts watching dials for the clock check.
void install(QMenu *menu, DVAppHost *host, QMainWindow *window);
// Brings `window` to the front (a second start asked for it).
void raise(QWidget *window);

} // namespace LinkTools

// "诊断信息": the controller's report as text, "复制诊断信息" puts it on the clipboard, and
// "获取令牌" asks the provider's token service and shows the answer below the report.
class DiagnosticsDialog : public QDialog
{
    Q_OBJECT
public:
    DiagnosticsDialog(DVAppHost *host, QWidget *parent = nullptr);

    void refresh();
    void copyToClipboard();
    void requestToken();
    QString text() const;

private:
    DVAppHost *_host;
    QPlainTextEdit *_text;
    QString _report;
    QString _token;
};
