#include "CheckUpdatePresenter.h"

#include "UpdateDownload.h"
#include "Updater.h"

#include "Util/Log.h"
#include "Util/ThreadHandoff.h"
#include "Util/UserDefaults.h"
#include "Util/userSecurityInfo.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>
#include <QUrl>

namespace {
const QString kChecking = QStringLiteral("客户端正在检查更新");
const QString kDownloading = QStringLiteral("客户端正在下载更新");
const QString kDownloaded = QStringLiteral("下载完成，是否退出并替换程序");
const QString kUpdateFound = QStringLiteral("检查到更新，是否下载");
} // namespace

CheckUpdatePresenter::CheckUpdatePresenter(Environment environment, QObject *parent)
    : QObject(parent)
    , _env(std::move(environment))
{
    if (!_env.makeUpdater)
        _env.makeUpdater = [] { return Updater::manualUpdateInitializerWithUser(userSecurityInfo().loadUser()); };
    if (!_env.singleShot)
        _env.singleShot = [this](int ms, std::function<void()> action) { QTimer::singleShot(ms, this, action); };
    if (!_env.quit)
        _env.quit = [] { QCoreApplication::quit(); };
}

CheckUpdatePresenter::~CheckUpdatePresenter() = default;

std::optional<QString> CheckUpdatePresenter::notConnectedMessage()
{
    if (UserDefaults::getConf(QStringLiteral("isconnected")))
        return std::nullopt;
    return QStringLiteral("请连接后再尝试更新");
}

void CheckUpdatePresenter::viewDidAppear()
{
    updateUserinterfaceByUpdateStateType(Checking);
}

void CheckUpdatePresenter::updateUserinterfaceByUpdateStateType(int state, const std::optional<QString> &message)
{
    ThreadHandoff::post(this, [this, state, message] { apply(state, message, 0); });
}

void CheckUpdatePresenter::apply(int state, const std::optional<QString> &message, quint64 generation)
{
    if (generation != 0 && generation != _generation)
        return; // an abandoned check or download
    switch (state) {
    case Checking:
        _label = kChecking;
        break;
    case Downloading:
        _label = kDownloading;
        _page = DownloadingPage;
        break;
    case Downloaded:
        _label = kDownloaded;
        _page = QuestionPage;
        break;
    case UpdateFound:
        _label = kUpdateFound;
        _page = QuestionPage;
        break;
    case Failed:
        _label = message.value_or(QString());
        _page = CheckingPage;
        break;
    default:
        return;
    }
    _state = state;
    Q_EMIT changed();
    if (state == Checking)
        doCheck();
    else if (state == Downloading)
        doDownload();
}

void CheckUpdatePresenter::doCheck()
{
    if (_download)
        _download->cancel();
    const quint64 generation = ++_generation;
    _updateClass = _env.makeUpdater();
    // The answers come on the check's own thread; they hop to the main thread here. The
    // presenter lives as long as the application (the dialog is created once and kept).
    QPointer<CheckUpdatePresenter> self(this);
    const auto post = [self, generation](int state, std::optional<QString> message, std::optional<QString> url) {
        ThreadHandoff::post(self.data(), [self, generation, state, message, url] {
            if (!self || generation != self->_generation)
                return;
            if (url)
                self->_downloadUrl = *url;
            self->apply(state, message, generation);
        });
    };
    _updateClass->checkUpdateWithNeedUpdateHandler(
        [post](const QString &address) { post(UpdateFound, std::nullopt, address); },
        [post](const QString &message) { post(Failed, message, std::nullopt); });
}

void CheckUpdatePresenter::doDownload()
{
    _progress = 0;
    Q_EMIT progressChanged(_progress);
    _download = std::make_unique<UpdateDownload>();
    const quint64 generation = _generation;
    connect(_download.get(), &UpdateDownload::progress, this, [this](qint64 written, qint64 expected) {
        _progress = qBound(0.0f, UpdateDownload::percent(written, expected), 100.0f);
        Q_EMIT progressChanged(_progress);
    });
    connect(_download.get(), &UpdateDownload::finished, this, &CheckUpdatePresenter::onDownloaded);
    // A failed download gets a clear message on the first page instead of leaving the dialog on
    // the download page with nothing happening.
    connect(_download.get(), &UpdateDownload::failed, this, [this, generation](const QString &why) {
        DVLOG() << "update download failed: " << why;
        apply(Failed, QStringLiteral("下载更新失败，错误:%1").arg(why), generation);
    });
    _download->start(QUrl(_downloadUrl));
}

void CheckUpdatePresenter::onDownloaded(const QString &location)
{
    DVLOG() << "finish " << location;
    const quint64 generation = _generation;
    if (!_updateClass || !_updateClass->verifyDataAt(location))
        apply(Failed, QStringLiteral("验证失败"), generation);
    else if (!_updateClass->prepareUpdate())
        apply(Failed, QStringLiteral("更新失败"), generation);
    else
        apply(Downloaded, std::nullopt, generation);
}

void CheckUpdatePresenter::yes()
{
    if (_label == kUpdateFound) {
        updateUserinterfaceByUpdateStateType(Downloading);
        return;
    }
    if (_updateClass)
        _updateClass->doUpdate();
    // A moment for the installer to start and note who it waits for, then this program ends
    // so that it can be replaced.
    _env.singleShot(1000, _env.quit);
}

void CheckUpdatePresenter::no()
{
    ++_generation;
    if (_download)
        _download->cancel();
    Q_EMIT closeRequested();
}
