#include "ConfJson.h"

#include "Util/DVJson.h"

std::optional<nlohmann::ordered_json> parseOrderedJson(const QByteArray &text, QString *error)
{
    return DVJson::parse(text, error);
}
