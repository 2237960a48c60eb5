#include "BusinessBody.h"

#include "Conf/Conf.h"
#include "Util/DVJson.h"

namespace BusinessBody {

std::optional<QString> currentArea()
{
    const QString area = Conf::area();
    if (area.isEmpty())
        return std::nullopt;
    return area;
}

nlohmann::ordered_json objectFromMembers(const BodyMembers &members)
{
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto &[key, value] : members) {
        if (!value)
            break;
        object[key] = *value;
    }
    return object;
}

std::optional<QByteArray> serialise(const nlohmann::ordered_json &object, QString *why)
{
    try {
        return QByteArray::fromStdString(object.dump(2));
    } catch (const nlohmann::ordered_json::exception &e) {
        if (why)
            *why = QString::fromUtf8(e.what());
        return std::nullopt;
    }
}

std::optional<nlohmann::ordered_json> text(const std::optional<QString> &value)
{
    if (!value)
        return std::nullopt;
    return nlohmann::ordered_json(value->toStdString());
}

std::optional<nlohmann::ordered_json> parse(const QByteArray &body, QString *why)
{
    return DVJson::parse(body, why);
}

} // namespace BusinessBody
