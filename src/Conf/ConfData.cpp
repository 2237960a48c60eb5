#include "ConfData.h"

#include <mutex>

namespace {
std::mutex &areaMutex()
{
    static std::mutex m;
    return m;
}

QString &dataArea()
{
    static QString area;
    return area;
}

const std::string kDefaultKey = "default";
} // namespace

void ConfData::setArea(const QString &area)
{
    std::lock_guard<std::mutex> lock(areaMutex());
    dataArea() = area;
}

QString ConfData::getArea()
{
    std::lock_guard<std::mutex> lock(areaMutex());
    return dataArea();
}

std::optional<ConfData> ConfData::fromJson(const json &object)
{
    if (!object.is_object())
        return std::nullopt;
    ConfData data;
    if (const auto it = object.find(kDefaultKey); it != object.end())
        data.defaultValue = *it;
    const QString area = getArea();
    if (!area.isEmpty())
        if (const auto it = object.find(area.toStdString()); it != object.end())
            data.areaValue = *it;
    return data;
}

ConfData::json ConfData::toJson() const
{
    json out = json::object();
    if (defaultValue)
        out[kDefaultKey] = *defaultValue;
    const QString area = getArea();
    if (areaValue && !area.isEmpty())
        out[area.toStdString()] = *areaValue;
    return out;
}
