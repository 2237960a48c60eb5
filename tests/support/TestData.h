#pragma once

#include "TestSupport.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

// Known-answer tables kept as JSON under tests/data, shared by the unit tests, the command-line
// tests and the benchmarks.
namespace TestData {

using json = nlohmann::ordered_json;

inline QString path(const char *name)
{
    return TestSupport::sourceTestsDir() + QStringLiteral("/data/") + QLatin1String(name);
}

// The parsed file; a discarded value when it is missing or no JSON.
inline json load(const char *name)
{
    QFile f(path(name));
    if (!f.open(QIODevice::ReadOnly))
        return json(json::value_t::discarded);
    const QByteArray raw = f.readAll();
    return json::parse(raw.constBegin(), raw.constEnd(), nullptr, false);
}

// The demo deployment's configuration as shipped (plain source).
inline json demoConfig()
{
    QFile f(TestSupport::sourceTestsDir() + QStringLiteral("/../resources/demo/system.json"));
    if (!f.open(QIODevice::ReadOnly))
        return json::object();
    const QByteArray raw = f.readAll();
    return json::parse(raw.constBegin(), raw.constEnd());
}

// A text member; nullopt when the member is missing or null.
inline std::optional<QString> opt(const json &object, const char *key)
{
    const auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return std::nullopt;
    return QString::fromStdString(it->get<std::string>());
}

inline QString text(const json &object, const char *key)
{
    return opt(object, key).value_or(QString());
}

inline QByteArray hex(const json &object, const char *key)
{
    return QByteArray::fromHex(QByteArray::fromStdString(object.at(key).get<std::string>()));
}

} // namespace TestData
