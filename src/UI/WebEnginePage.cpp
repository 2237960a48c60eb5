// The online view's page in Qt WebEngine (compiled only with DORVIK_WEBENGINE).
#include "OnlinePage.h"

#include "Util/Log.h"

#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace {

// A page asked for by a link that wants a new window: its first navigation goes to the
// default browser, and the page itself is never shown.
class NewWindowPage : public QWebEnginePage
{
public:
    NewWindowPage(OnlinePage::OpenExternally open, QObject *parent)
        : QWebEnginePage(parent)
        , _open(std::move(open))
    {}

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType, bool) override
    {
        if (_open)
            _open(url);
        deleteLater();
        return false;
    }

private:
    OnlinePage::OpenExternally _open;
};

// Every navigation inside the page is allowed.
class ProviderPage : public QWebEnginePage
{
public:
    ProviderPage(OnlinePage::OpenExternally open, QObject *parent)
        : QWebEnginePage(parent)
        , _open(std::move(open))
    {}

protected:
    QWebEnginePage *createWindow(WebWindowType) override { return new NewWindowPage(_open, this); }

private:
    OnlinePage::OpenExternally _open;
};

class WebEnginePage : public OnlinePage
{
public:
    WebEnginePage(OpenExternally open, QWidget *parent)
        : OnlinePage(parent)
    {
        setObjectName(QStringLiteral("webPage"));
        auto *layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        _view = new QWebEngineView(this);
        _page = new ProviderPage(std::move(open), _view);
        _view->setPage(_page);
        layout->addWidget(_view);
        connect(_page, &QWebEnginePage::loadFinished, this, &OnlinePage::loadFinished);
        connect(_page, &QWebEnginePage::renderProcessTerminated, this,
                [this](QWebEnginePage::RenderProcessTerminationStatus status, int exitCode) {
                    DVLOG() << "page renderer ended (status " << int(status) << ", code " << exitCode << "), reloading";
                    // Not from inside the engine's own notification.
                    QTimer::singleShot(0, this, [self = QPointer<WebEnginePage>(this)] {
                        if (!self)
                            return;
                        self->_page->load(self->_url);
                        Q_EMIT self->renderProcessRestarted();
                    });
                });
    }

    void load(const QUrl &url) override
    {
        _url = url;
        _page->load(url);
    }
    QUrl address() const override { return _url; }
    qint64 renderProcessId() const override { return _page->renderProcessPid(); }

private:
    QWebEngineView *_view = nullptr;
    ProviderPage *_page = nullptr;
    QUrl _url;
};

} // namespace

OnlinePage *makeWebEnginePage(OnlinePage::OpenExternally openExternally, QWidget *parent)
{
    return new WebEnginePage(std::move(openExternally), parent);
}
