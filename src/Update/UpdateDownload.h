#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

class QNetworkAccessManager;
class QNetworkReply;
class QTemporaryFile;

// One GET of a package into a temporary file, with progress. Lives on the thread that starts it
// (the main thread); its signals arrive there.
class UpdateDownload : public QObject
{
    Q_OBJECT
public:
    explicit UpdateDownload(QObject *parent = nullptr);
    ~UpdateDownload() override;

    void start(const QUrl &url);
    // Stops a running download; neither finished nor failed follows.
    void cancel();

    // bytes written so far ÷ bytes expected × 100 in single precision; 0 while the size is
    // unknown.
    static float percent(qint64 written, qint64 expected);

Q_SIGNALS:
    void progress(qint64 written, qint64 expected);
    // The whole body is in `location` (a temporary file removed with this object).
    void finished(const QString &location);
    // Transport error, an HTTP status other than 200, or the file could not be written.
    void failed(const QString &description);

private:
    void onReadyRead();
    void onFinished();

    std::unique_ptr<QNetworkAccessManager> _manager;
    std::unique_ptr<QTemporaryFile> _file;
    QNetworkReply *_reply = nullptr;
    bool _writeFailed = false;
};
