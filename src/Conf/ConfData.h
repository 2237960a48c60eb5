#pragma once

#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

// One area-keyed value as a record of its own: the "default" entry, the entry of ConfData's
// own area (kept apart from the configuration's area), and the value that applies.
class ConfData
{
public:
    using json = nlohmann::ordered_json;

    std::optional<json> defaultValue; // JSON key "default"
    std::optional<json> areaValue;    // JSON key: getArea()

    // areaValue when present, else defaultValue. Never read from JSON.
    std::optional<json> value() const { return areaValue ? areaValue : defaultValue; }

    // Both entries may be absent: a value object need not name every area, nor a default.
    // Null (nullopt) only when the input is not an object.
    static std::optional<ConfData> fromJson(const json &object);
    // Back through the same key map; absent entries are left out. Without an area only
    // "default" is written.
    json toJson() const;

    static void setArea(const QString &area);
    static QString getArea();
};
