#pragma once

#include <nlohmann/json.hpp>

#include <QByteArray>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

// The request objects of the business server are built from an ordered list of members that
// ends at the first absent value: whatever follows a missing member is left out as well.
using BodyMembers = std::vector<std::pair<const char *, std::optional<nlohmann::ordered_json>>>;

namespace BusinessBody {

// The current area code; an empty one counts as absent in the bodies.
std::optional<QString> currentArea();

nlohmann::ordered_json objectFromMembers(const BodyMembers &members);
// Pretty-printed (two-space indent) UTF-8 text; nullopt, with the serialiser's reason in
// `why`, when the value cannot be written (invalid UTF-8 in a text).
std::optional<QByteArray> serialise(const nlohmann::ordered_json &object, QString *why);
// Text as a JSON string member; nullopt stays absent.
std::optional<nlohmann::ordered_json> text(const std::optional<QString> &value);
// Parses an answer; allows a top-level value of any kind. nullopt with the parser's reason.
std::optional<nlohmann::ordered_json> parse(const QByteArray &body, QString *why);

} // namespace BusinessBody
