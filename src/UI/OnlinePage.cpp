#include "OnlinePage.h"

#include "Util/Log.h"

#include <QCoreApplication>
#include <QLabel>
#include <QVBoxLayout>

#include <unistd.h>

#ifdef DORVIK_HAVE_WEBENGINE
OnlinePage *makeWebEnginePage(OnlinePage::OpenExternally openExternally, QWidget *parent);
#endif

bool OnlinePage::webEngineBuilt()
{
#ifdef DORVIK_HAVE_WEBENGINE
    return true;
#else
    return false;
#endif
}

QString OnlinePage::webEngineUnavailableReason()
{
    if (!webEngineBuilt())
        return QStringLiteral("built without Qt WebEngine (DORVIK_WEBENGINE=OFF)");
    // Chromium refuses to start its sandboxed renderer for root; the page would stay empty.
    const bool sandboxOff =
        qEnvironmentVariableIntValue("QTWEBENGINE_DISABLE_SANDBOX") != 0
        || qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS").contains(QLatin1String("--no-sandbox"));
    if (geteuid() == 0 && !sandboxOff)
        return QStringLiteral("running as root: set QTWEBENGINE_DISABLE_SANDBOX=1 to show the page");
    return {};
}

void OnlinePage::prepareApplication()
{
    if (webEngineBuilt())
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

OnlinePage *OnlinePage::create(OpenExternally openExternally, QWidget *parent)
{
    const QString reason = webEngineUnavailableReason();
#ifdef DORVIK_HAVE_WEBENGINE
    if (reason.isEmpty())
        return makeWebEnginePage(std::move(openExternally), parent);
#endif
    DVLOG() << "web page shown as a link: " << reason;
    return new LinkPage(std::move(openExternally), QStringLiteral("在浏览器中打开页面："), parent);
}

LinkPage::LinkPage(OpenExternally openExternally, const QString &note, QWidget *parent)
    : OnlinePage(parent)
    , _open(std::move(openExternally))
{
    setObjectName(QStringLiteral("linkPage"));
    auto *layout = new QVBoxLayout(this);
    auto *caption = new QLabel(note, this);
    caption->setAlignment(Qt::AlignCenter);
    _link = new QLabel(this);
    _link->setAlignment(Qt::AlignCenter);
    _link->setTextFormat(Qt::RichText);
    _link->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(_link, &QLabel::linkActivated, this, [this](const QString &) {
        if (_open && _url.isValid())
            _open(_url);
    });
    layout->addStretch();
    layout->addWidget(caption);
    layout->addWidget(_link);
    layout->addStretch();
}

void LinkPage::load(const QUrl &url)
{
    _url = url;
    const QString shown = url.toString().toHtmlEscaped();
    _link->setText(QStringLiteral("<a href=\"%1\">%1</a>").arg(shown));
    Q_EMIT loadFinished(url.isValid());
}
