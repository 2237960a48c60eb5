#include "SimHost.h"

#include "Conf/ConfCrypt.h"

#include <QFile>

#include <cstdio>

bool SimHost::start(const SimOptions &options, const QStringList &only)
{
    for (const auto &entry : simServices()) {
        if (!only.isEmpty() && !only.contains(entry.name))
            continue;
        auto service = entry.make();
        if (!service->start(options)) {
            std::fprintf(stderr, "dorvik-sim: service %s did not start\n", qUtf8Printable(entry.name));
            return false;
        }
        _services.emplace_back(entry.name, std::move(service));
    }
    return true;
}

SimService *SimHost::service(const QString &name) const
{
    for (const auto &[n, s] : _services)
        if (n == name)
            return s.get();
    return nullptr;
}

nlohmann::ordered_json SimHost::ports() const
{
    auto out = nlohmann::ordered_json::object();
    for (const auto &[n, s] : _services)
        out[n.toStdString()] = s->port();
    return out;
}

nlohmann::ordered_json SimHost::stats() const
{
    auto out = nlohmann::ordered_json::object();
    for (const auto &[n, s] : _services)
        out[n.toStdString()] = s->stats();
    return out;
}

std::optional<nlohmann::ordered_json> SimHost::loadConfig(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    const QByteArray raw = file.readAll();
    auto parsed = nlohmann::ordered_json::parse(raw.constData(), raw.constData() + raw.size(), nullptr, false);
    if (!parsed.is_discarded() && parsed.is_object())
        return parsed;
    const auto plain = ConfCrypt::decodeData(raw);
    if (!plain) {
        *error =
            QStringLiteral("%1 is neither JSON nor a configuration file encrypted with this build's key").arg(path);
        return std::nullopt;
    }
    parsed = nlohmann::ordered_json::parse(plain->constData(), plain->constData() + plain->size(), nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        *error = QStringLiteral("%1 decrypts but is not a JSON object").arg(path);
        return std::nullopt;
    }
    return parsed;
}
