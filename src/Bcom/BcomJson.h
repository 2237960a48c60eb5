#pragma once

// Field readers shared by the heartbeat's JSON models. A required key that is missing or of
// the wrong kind makes the whole record invalid; an optional key may be absent or null.

#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <optional>

namespace BcomJson {

using ordered_json = nlohmann::ordered_json;

// Collects the first problem found while reading one record.
class Reader
{
public:
    Reader(const ordered_json &object, const char *model)
        : _object(object)
        , _model(model)
    {
        if (!_object.is_object())
            fail(QStringLiteral("is not a JSON object"));
    }

    bool ok() const { return _error.isEmpty(); }
    const QString &error() const { return _error; }

    QString requiredString(const char *key) { return string(key, true).value_or(QString()); }
    std::optional<QString> optionalString(const char *key) { return string(key, false); }

    quint64 requiredUInt64(const char *key);
    // A JSON number as it is (integer or not); nullopt when absent.
    std::optional<ordered_json> number(const char *key, bool required);
    std::optional<ordered_json> object(const char *key, bool required);
    QStringList requiredStringArray(const char *key);

private:
    const ordered_json *find(const char *key, bool required);
    std::optional<QString> string(const char *key, bool required);
    void fail(const QString &what);

    const ordered_json &_object;
    const char *_model;
    QString _error;
};

inline std::string str(const QString &text)
{
    return text.toStdString();
}

// A JSON number as a signed 32-bit value: fractions dropped, out-of-range values clamped.
qint32 toInt32(const ordered_json &number);

} // namespace BcomJson
