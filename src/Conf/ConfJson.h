#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

// Reads the configuration's JSON text: linear time (one member per area code makes objects of
// thousands of members), members in order, nesting bounded (see Util/DVJson.h). nullopt and a
// description of the fault in `error` when the text is not JSON or nested too deep.
std::optional<nlohmann::ordered_json> parseOrderedJson(const QByteArray &text, QString *error);
