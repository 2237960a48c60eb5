#include "UpdateServer.h"

#include "Update/InstallLocation.h"
#include "Update/UpdatePackage.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QHttpServerResponse>
#include <QTextStream>
#include <QUrl>

using nlohmann::ordered_json;
using Status = QHttpServerResponder::StatusCode;

UpdateServer::UpdateServer(QObject *parent)
    : SimService(parent)
{}

bool UpdateServer::start(const SimOptions &options)
{
    _scenario = options.scenario(QStringLiteral("update"));
    const auto host = options.setting("update", "host");
    QString path = QUrl(host.value_or(QString())).path();
    if (path.isEmpty())
        path = QStringLiteral("/");
    _tree = qEnvironmentVariable("DORVIK_SIM_UPDATE_TREE");
    if (_tree.isEmpty())
        _tree = QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    const QString current = InstallLocation::version(_tree);
    if (_scenario == QLatin1String("none-newer"))
        _offered = QStringLiteral("0");
    else if (_scenario == QLatin1String("equal"))
        _offered = current;
    else if (_scenario.startsWith(QLatin1String("version:")))
        _offered = _scenario.mid(8);
    else
        _offered = current + QStringLiteral(".1");
    _packageName = QStringLiteral("dorvik-%1-linux.tar.gz").arg(_offered);

    _http.route(path, QHttpServerRequest::Method::Post, [this](const QHttpServerRequest &r) { return check(r); });
    _http.route(QStringLiteral("/packages/<arg>"), QHttpServerRequest::Method::Get,
                [this](const QString &name) { return download(name); });
    const quint16 wanted = options.listenPort(host, 18084);
    _port = _http.listen(QHostAddress::LocalHost, wanted);
    if (_port == 0) {
        QTextStream(stderr) << "update: cannot listen on port " << wanted << '\n';
        return false;
    }
    return true;
}

bool UpdateServer::ensurePackage()
{
    QMutexLocker lock(&_mutex);
    if (_packed)
        return !_package.isEmpty();
    _packed = true;
    _dir = std::make_unique<QTemporaryDir>();
    const QString file = _dir->filePath(_packageName);
    QString error;
    const std::map<QString, QByteArray> version{{QStringLiteral("share/dorvik/version"), _offered.toUtf8() + '\n'}};
    QFile out(file);
    if (!UpdatePackage::pack(_tree, file, version, &error) || !out.open(QIODevice::ReadOnly)) {
        QTextStream(stderr) << "update: cannot pack " << _tree << ": " << error << '\n';
        return false;
    }
    _package = out.readAll();
    if (_scenario == QLatin1String("broken-archive"))
        _package.truncate(_package.size() / 2);
    return true;
}

QHttpServerResponse UpdateServer::check(const QHttpServerRequest &request)
{
    {
        QMutexLocker lock(&_mutex);
        ++_checks;
        _lastBody = request.body();
        _lastContentType = request.value(QByteArrayLiteral("Content-Type"));
        const auto body = ordered_json::parse(_lastBody.constBegin(), _lastBody.constEnd(), nullptr, false);
        if (body.is_object() && body.size() == 3 && body.value("OS", "") == "Linux")
            ++_linuxChecks;
    }
    const auto json = [](const ordered_json &j, Status status = Status::Ok) {
        return QHttpServerResponse(QByteArrayLiteral("application/json"), QByteArray::fromStdString(j.dump()), status);
    };
    if (_scenario == QLatin1String("http500"))
        return json({{"error", "internal"}}, Status::InternalServerError);
    if (_scenario == QLatin1String("empty-body"))
        return QHttpServerResponse(QByteArrayLiteral("application/json"), QByteArray(), Status::Ok);
    if (_scenario == QLatin1String("garbage"))
        return json({{"ResponseType", "update"}, {"Host", "x"}, {"Version", 2}});

    ordered_json answer;
    answer["ResponseType"] = "UpdateResp";
    answer["Host"] = QStringLiteral("http://127.0.0.1:%1/").arg(_port).toStdString();
    answer["Version"] = _offered.toStdString();
    answer["LatestFileList"] = ordered_json::array();
    if (_scenario != QLatin1String("empty-list")) {
        if (!ensurePackage())
            return json({{"error", "no package"}}, Status::InternalServerError);
        QString hash = QString::fromLatin1(QCryptographicHash::hash(_package, QCryptographicHash::Md5).toHex());
        if (_scenario == QLatin1String("uppercase-hash"))
            hash = hash.toUpper();
        const QString name =
            _scenario == QLatin1String("missing-package") ? QStringLiteral("gone.tar.gz") : _packageName;
        answer["LatestFileList"].push_back(
            {{"Url", "packages/" + name.toStdString()}, {"Path", "dorvik"}, {"Hash", hash.toStdString()}});
    }
    return json(answer);
}

QHttpServerResponse UpdateServer::download(const QString &name)
{
    if (name != _packageName || !ensurePackage())
        return QHttpServerResponse(Status::NotFound);
    QMutexLocker lock(&_mutex);
    ++_downloads;
    return QHttpServerResponse(QByteArrayLiteral("application/gzip"), _package, Status::Ok);
}

QByteArray UpdateServer::lastBody() const
{
    QMutexLocker lock(&_mutex);
    return _lastBody;
}

QByteArray UpdateServer::lastContentType() const
{
    QMutexLocker lock(&_mutex);
    return _lastContentType;
}

QString UpdateServer::packagePath() const
{
    QMutexLocker lock(&_mutex);
    return _dir ? _dir->filePath(_packageName) : QString();
}

ordered_json UpdateServer::stats() const
{
    QMutexLocker lock(&_mutex);
    return {{"checks", _checks},
            {"linuxChecks", _linuxChecks},
            {"downloads", _downloads},
            {"offered", _offered.toStdString()}};
}
