#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

// Reads a JSON document into an ordered_json in linear time. The library's own parser looks
// up every new member among the ones already read, which makes objects with thousands of
// members (one per area code) quadratic to read. Members keep their order; a repeated key
// keeps its first position and takes the last value, as with the library's parser.
// nullopt and a description of the fault in `error` when the text is not JSON.
std::optional<nlohmann::ordered_json> parseOrderedJson(const QByteArray &text, QString *error);
