#include "UpdateDownload.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTemporaryFile>

UpdateDownload::UpdateDownload(QObject *parent)
    : QObject(parent)
{}

UpdateDownload::~UpdateDownload()
{
    cancel();
}

float UpdateDownload::percent(qint64 written, qint64 expected)
{
    if (expected <= 0)
        return 0.0f;
    return static_cast<float>(written) / static_cast<float>(expected) * 100.0f;
}

void UpdateDownload::start(const QUrl &url)
{
    cancel();
    _writeFailed = false;
    _file = std::make_unique<QTemporaryFile>(QDir::tempPath() + QStringLiteral("/dorvik-download-XXXXXX"));
    if (!_file->open()) {
        const QString why = _file->errorString();
        _file.reset();
        Q_EMIT failed(why);
        return;
    }
    // A session of its own, nothing cached or stored.
    _manager = std::make_unique<QNetworkAccessManager>();
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    _reply = _manager->get(request);
    connect(_reply, &QNetworkReply::readyRead, this, &UpdateDownload::onReadyRead);
    connect(_reply, &QNetworkReply::downloadProgress, this, &UpdateDownload::progress);
    connect(_reply, &QNetworkReply::finished, this, &UpdateDownload::onFinished);
}

void UpdateDownload::cancel()
{
    if (_reply) {
        _reply->disconnect(this);
        _reply->abort();
        _reply->deleteLater();
        _reply = nullptr;
    }
}

void UpdateDownload::onReadyRead()
{
    const QByteArray chunk = _reply->readAll();
    if (!_writeFailed && _file->write(chunk) != chunk.size())
        _writeFailed = true;
}

void UpdateDownload::onFinished()
{
    QNetworkReply *reply = _reply;
    _reply = nullptr;
    reply->deleteLater();
    const QByteArray rest = reply->readAll();
    if (!_writeFailed && _file->write(rest) != rest.size())
        _writeFailed = true;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (reply->error() != QNetworkReply::NoError && !status.isValid()) {
        Q_EMIT failed(reply->errorString());
        return;
    }
    if (status.toInt() != 200) {
        Q_EMIT failed(QStringLiteral("HTTP %1").arg(status.toInt()));
        return;
    }
    if (_writeFailed || !_file->flush()) {
        Q_EMIT failed(_file->errorString());
        return;
    }
    Q_EMIT finished(_file->fileName());
}
