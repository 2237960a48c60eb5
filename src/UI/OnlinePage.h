#pragma once

#include <QUrl>
#include <QWidget>

#include <functional>

// The content area of the online view: the provider's page. With Qt WebEngine (built in with
// the CMake option DORVIK_WEBENGINE) it is a real web view; without it, or when the web
// engine cannot run here (as root without its sandbox disabled), the address is shown as a
// link that opens the default browser.
class OnlinePage : public QWidget
{
    Q_OBJECT
public:
    using OpenExternally = std::function<void(const QUrl &url)>;

    // The best page this build and this process can show.
    static OnlinePage *create(OpenExternally openExternally, QWidget *parent);
    // True when this build has the web engine.
    static bool webEngineBuilt();
    // Why the web engine is not used here, or empty when it is.
    static QString webEngineUnavailableReason();
    // Sets what the web engine needs before the QApplication is made (a shared OpenGL
    // context). Call it first thing in main.
    static void prepareApplication();

    virtual void load(const QUrl &url) = 0;
    virtual QUrl address() const = 0;
    // The process that renders the page (0 when there is none).
    virtual qint64 renderProcessId() const { return 0; }

Q_SIGNALS:
    void loadFinished(bool ok);
    // The renderer process ended; the page is being loaded again.
    void renderProcessRestarted();

protected:
    using QWidget::QWidget;
};

// The page without a web engine: the address as a link.
class LinkPage : public OnlinePage
{
    Q_OBJECT
public:
    LinkPage(OpenExternally openExternally, const QString &note, QWidget *parent);
    void load(const QUrl &url) override;
    QUrl address() const override { return _url; }

private:
    class QLabel *_link;
    OpenExternally _open;
    QUrl _url;
};
