#pragma once

#include "SimService.h"

#include <QHttpServer>
#include <QMutex>
#include <QTemporaryDir>

#include <nlohmann/json.hpp>

#include <memory>

// The provider's update service. A POST to the address of the update section answers with
// the latest release ({"ResponseType", "Host", "Version", "LatestFileList": [{"Url", "Path",
// "Hash"}]}); GET /packages/<name> serves the package. The package is made, on the first
// request, from an installation tree (DORVIK_SIM_UPDATE_TREE, else the prefix the simulator
// itself runs from: bin/, libexec/dorvik/, share/dorvik/) under a higher version: the tree's
// version followed by ".1", which is newer as text.
//
// Scenarios ("update" scenario): "none-newer" (an older version), "equal" (the tree's version),
// "version:X" (offers version X), "uppercase-hash", "broken-archive" (a truncated package with
// its matching hash), "missing-package" (the package address answers 404), "http500",
// "empty-list", "empty-body", "garbage" (an answer that is not the file list).
class UpdateServer : public SimService
{
    Q_OBJECT
public:
    explicit UpdateServer(QObject *parent = nullptr);

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;

    // The body and content type of the last check.
    QByteArray lastBody() const;
    QByteArray lastContentType() const;
    // The version offered and the package file (empty before the first check).
    QString offeredVersion() const { return _offered; }
    QString packagePath() const;

private:
    QHttpServerResponse check(const QHttpServerRequest &request);
    QHttpServerResponse download(const QString &name);
    // Builds the package once; false (logged on stderr) when the tree cannot be packed.
    bool ensurePackage();

    QHttpServer _http;
    quint16 _port = 0;
    QString _scenario, _tree, _offered, _packageName;
    std::unique_ptr<QTemporaryDir> _dir;

    mutable QMutex _mutex;
    QByteArray _package, _lastBody, _lastContentType;
    bool _packed = false;
    int _checks = 0, _downloads = 0, _linuxChecks = 0;
};
