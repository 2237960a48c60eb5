#include "SimService.h"

#include <QUrl>

std::optional<nlohmann::ordered_json> SimOptions::settingValue(const char *section, const char *key,
                                                               const QString &forArea) const
{
    const auto s = config.find(section);
    if (s == config.end() || !s->is_object())
        return std::nullopt;
    const auto v = s->find(key);
    if (v == s->end() || !v->is_object())
        return std::nullopt;
    auto e = v->find((forArea.isEmpty() ? area : forArea).toStdString());
    if (e == v->end())
        e = v->find("default");
    if (e == v->end() || e->is_null())
        return std::nullopt;
    return *e;
}

std::optional<QString> SimOptions::setting(const char *section, const char *key, const QString &forArea) const
{
    const auto v = settingValue(section, key, forArea);
    if (!v || v->is_object() || v->is_array())
        return std::nullopt;
    return QString::fromStdString(v->is_string() ? v->get<std::string>() : v->dump());
}

quint16 SimOptions::listenPort(const std::optional<QString> &address, quint16 fallback) const
{
    if (ephemeralPorts)
        return 0;
    const QString text = address.value_or(QString());
    int port = QUrl(text).port(-1);
    if (port <= 0 && !text.contains(QLatin1String("://")))
        port = text.section(QLatin1Char(':'), -1).toInt();
    return port > 0 && port < 65536 ? static_cast<quint16>(port) : fallback;
}
