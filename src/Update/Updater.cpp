#include "Updater.h"

#include "InstallLocation.h"

#include "Business/BusinessHttp.h"
#include "Conf/Conf.h"
#include "Util/DVJson.h"
#include "Util/DVUtils.h"
#include "Util/Log.h"
#include "Util/userSecurityInfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <nlohmann/json.hpp>

#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// The platform whose packages this client installs.
const char *const kOS = "Linux";

struct UpdateFileListItem
{
    QString Url, Path, Hash;
};

struct UpdateFileList
{
    QString ResponseType, Host, Version;
    std::vector<UpdateFileListItem> LatestFileList;
};

bool stringMember(const nlohmann::ordered_json &object, const char *key, QString *out)
{
    const auto it = object.find(key);
    if (it == object.end() || !it->is_string())
        return false;
    *out = QString::fromStdString(it->get<std::string>());
    return true;
}

// Every key is required; one missing or of the wrong kind makes the whole answer unusable.
std::optional<UpdateFileList> parseFileList(const QByteArray &body)
{
    QString error;
    const std::optional<nlohmann::ordered_json> parsed = DVJson::parse(body, &error);
    if (!parsed) {
        DVLOG() << "update check answer unreadable: " << error;
        return std::nullopt;
    }
    const nlohmann::ordered_json &json = *parsed;
    if (!json.is_object())
        return std::nullopt;
    UpdateFileList list;
    if (!stringMember(json, "ResponseType", &list.ResponseType) || !stringMember(json, "Host", &list.Host)
        || !stringMember(json, "Version", &list.Version))
        return std::nullopt;
    const auto files = json.find("LatestFileList");
    if (files == json.end() || !files->is_array())
        return std::nullopt;
    for (const auto &file : *files) {
        UpdateFileListItem item;
        if (!file.is_object() || !stringMember(file, "Url", &item.Url) || !stringMember(file, "Path", &item.Path)
            || !stringMember(file, "Hash", &item.Hash))
            return std::nullopt;
        list.LatestFileList.push_back(item);
    }
    return list;
}

// The last component of a path written with "/", trailing separators ignored ("pkg/" gives
// "pkg"). A name that could not be a file in a directory ("", ".", "..") counts as no name, so
// that the package copy can never land outside the download's directory.
std::optional<QString> lastPathComponent(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(QLatin1Char('/')))
        p.chop(1);
    const QString name = p.mid(p.lastIndexOf(QLatin1Char('/')) + 1);
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return std::nullopt;
    return name;
}

} // namespace

std::shared_ptr<Updater> Updater::manualUpdateInitializerWithUser(const std::optional<QString> &user)
{
    const Conf *conf = Conf::shared();
    std::optional<QString> host = conf ? conf->update.getHost() : std::nullopt;
    return std::make_shared<Updater>(Conf::area(), user, InstallLocation::version(InstallLocation::root()), host);
}

Updater::Updater(std::optional<QString> area, std::optional<QString> user, std::optional<QString> version,
                 std::optional<QString> host)
    : _host(std::move(host))
    , _version(std::move(version))
    , _user(std::move(user))
    , _area(std::move(area))
{}

void Updater::checkUpdateWithNeedUpdateHandler(Handler needUpdate, Handler needlessUpdate)
{
    // The exchange runs on a thread of its own, like an HTTP session's queue: the handlers
    // never run on the caller's thread, and the caller's event loop is not needed.
    std::thread([self = shared_from_this(), needUpdate = std::move(needUpdate),
                 needlessUpdate = std::move(needlessUpdate)] {
        self->runCheck(needUpdate, needlessUpdate);
    }).detach();
}

void Updater::runCheck(const Handler &needUpdate, const Handler &needlessUpdate)
{
    QByteArray body;
    try {
        // An account never remembered is sent as empty text rather than failing the check.
        nlohmann::ordered_json request = nlohmann::ordered_json::object();
        request["Areacode"] = _area.value_or(QString()).toStdString();
        request["User"] = _user.value_or(QString()).toStdString();
        request["OS"] = kOS;
        body = QByteArray::fromStdString(request.dump());
    } catch (const nlohmann::json::exception &e) {
        needlessUpdate(QStringLiteral("检查更新失败，错误:%1").arg(QString::fromUtf8(e.what())));
        return;
    }

    const QUrl url(_host.value_or(QString()), QUrl::StrictMode);
    if (!_host || _host->isEmpty() || !url.isValid()) {
        needlessUpdate(QStringLiteral("检查更新失败，错误的服务器地址"));
        return;
    }
    HttpRequestSpec outgoing;
    outgoing.url = url;
    outgoing.body = body;
    outgoing.headers = {{QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json")}};
    // An HTTP client's usual request time-out; a server that never answers ends the check.
    outgoing.timeoutMs = 60000;
    handleCheckReply(BusinessHttp::sendBlocking(outgoing), needUpdate, needlessUpdate);
}

void Updater::handleCheckReply(const HttpReply &reply, const Handler &needUpdate, const Handler &needlessUpdate)
{
    if (reply.transportError) {
        needlessUpdate(QStringLiteral("检查更新失败，错误:%1").arg(*reply.transportError));
        return;
    }
    if (reply.status != 200) {
        needlessUpdate(QStringLiteral("检查更新失败，错误:%1").arg(reply.status));
        return;
    }
    if (reply.body.isEmpty()) {
        needlessUpdate(QStringLiteral("检查更新失败，错误：检查更新返回内容为空"));
        return;
    }
    const auto list = parseFileList(reply.body);
    if (!list) {
        needlessUpdate(QStringLiteral("检查更新失败，错误：检查更新返回内容解析失败"));
        return;
    }
    // Plain text comparison, character by character: "2.0" is newer than "10.0" here. The
    // server decides what is offered; this only keeps an equal or older answer from offering.
    if (list->LatestFileList.empty() || !(list->Version > _version.value_or(QString()))) {
        needlessUpdate(QStringLiteral("已经是最新版本"));
        return;
    }
    const UpdateFileListItem &item = list->LatestFileList.front();
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _packageName = lastPathComponent(item.Url);
        _packageHash = item.Hash;
        _packageUrl.reset();
    }
    needUpdate(list->Host + item.Url);
}

bool Updater::verifyDataAt(const QString &downloadedFile)
{
    std::lock_guard<std::mutex> lock(_mutex);
    if (!_packageHash || !_packageName)
        return false;
    // A file that cannot be hashed is not refused here; the copy below fails for it instead.
    const std::optional<QString> hash = DVUtils::getFileMD5WithPath(downloadedFile);
    if (hash && *hash != *_packageHash) {
        DVLOG() << "verify failed,hash not same";
        return false;
    }
    const QString target = QFileInfo(downloadedFile).dir().filePath(*_packageName);
    if (QFileInfo(target).absoluteFilePath() != QFileInfo(downloadedFile).absoluteFilePath()) {
        QFile::remove(target);
        if (!QFile::copy(downloadedFile, target)) {
            DVLOG() << "verify failed,copy failed";
            return false;
        }
    }
    _packageUrl = target;
    return true;
}

QString Updater::stagedInstallerPath()
{
    // One per user: another user's copy in a shared /tmp could be neither removed nor replaced.
    return QDir::tempPath() + QStringLiteral("/dorvik-update-installer-") + QString::number(::getuid());
}

bool Updater::prepareUpdate()
{
    const auto package = packageUrl();
    if (!package) {
        DVLOG() << "prepare update failed";
        return false;
    }
    if (!QFileInfo::exists(*package)) {
        DVLOG() << "prepare update failed, file not exist at " << *package;
        return false;
    }
    const QString dest = stagedInstallerPath();
    if (QFileInfo::exists(dest) || QFileInfo(dest).isSymLink())
        QFile::remove(dest);
    const QString src = InstallLocation::installerPath(installRoot());
    if (!QFile::copy(src, dest)) {
        DVLOG() << "prepare update failed, updater copy  failed, src: " << src << " ,dest " << dest;
        return false;
    }
    return true;
}

bool Updater::doUpdate()
{
    const auto package = packageUrl();
    if (!package) {
        DVLOG() << "do update failed";
        return false;
    }
    qint64 pid = 0;
    const QStringList args{QString::number(QCoreApplication::applicationPid()), *package, installRoot()};
    if (QProcess::startDetached(stagedInstallerPath(), args, QString(), &pid))
        DVLOG() << "update installer started, pid " << pid;
    else
        DVLOG() << "update installer could not be started: " << stagedInstallerPath();
    return true;
}

void Updater::setInstallRoot(const QString &root)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _installRoot = root;
}

QString Updater::installRoot() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _installRoot.isEmpty() ? InstallLocation::root() : _installRoot;
}

std::optional<QString> Updater::packageName() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _packageName;
}

std::optional<QString> Updater::packageHash() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _packageHash;
}

std::optional<QString> Updater::packageUrl() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _packageUrl;
}
