#include "BcomJson.h"

#include "Util/DVJson.h"

namespace BcomJson {

void Reader::fail(const QString &what)
{
    if (_error.isEmpty())
        _error = QLatin1String(_model) + QLatin1Char(' ') + what;
}

const ordered_json *Reader::find(const char *key, bool required)
{
    if (!_object.is_object())
        return nullptr;
    const auto it = _object.find(key);
    if (it == _object.end() || it->is_null()) {
        if (required)
            fail(QStringLiteral("is missing the required key \"%1\"").arg(QLatin1String(key)));
        return nullptr;
    }
    return &*it;
}

std::optional<QString> Reader::string(const char *key, bool required)
{
    const ordered_json *v = find(key, required);
    if (!v)
        return std::nullopt;
    if (!v->is_string()) {
        fail(QStringLiteral("key \"%1\" is not a string").arg(QLatin1String(key)));
        return std::nullopt;
    }
    return QString::fromStdString(v->get<std::string>());
}

quint64 Reader::requiredUInt64(const char *key)
{
    const ordered_json *v = find(key, true);
    if (!v)
        return 0;
    if (v->is_number_unsigned())
        return v->get<quint64>();
    fail(QStringLiteral("key \"%1\" is not an unsigned integer").arg(QLatin1String(key)));
    return 0;
}

std::optional<ordered_json> Reader::number(const char *key, bool required)
{
    const ordered_json *v = find(key, required);
    if (!v)
        return std::nullopt;
    if (!v->is_number()) {
        fail(QStringLiteral("key \"%1\" is not a number").arg(QLatin1String(key)));
        return std::nullopt;
    }
    return *v;
}

std::optional<ordered_json> Reader::object(const char *key, bool required)
{
    const ordered_json *v = find(key, required);
    if (!v)
        return std::nullopt;
    if (!v->is_object()) {
        fail(QStringLiteral("key \"%1\" is not an object").arg(QLatin1String(key)));
        return std::nullopt;
    }
    return *v;
}

QStringList Reader::requiredStringArray(const char *key)
{
    const ordered_json *v = find(key, true);
    if (!v)
        return {};
    QStringList out;
    if (v->is_array()) {
        for (const auto &item : *v) {
            if (!item.is_string()) {
                fail(QStringLiteral("key \"%1\" holds a value that is not a string").arg(QLatin1String(key)));
                return {};
            }
            out.append(QString::fromStdString(item.get<std::string>()));
        }
        return out;
    }
    fail(QStringLiteral("key \"%1\" is not an array").arg(QLatin1String(key)));
    return {};
}

qint32 toInt32(const ordered_json &number)
{
    return DVJson::saturatedInteger<qint32>(number).value_or(0);
}

} // namespace BcomJson
