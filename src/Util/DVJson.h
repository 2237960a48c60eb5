#pragma once

// The one way to read JSON that comes from outside the program: server replies, received
// configuration, the configuration file. Nesting is bounded while reading, so no tree held by
// the program is deeper than kMaxDepth: copying, comparing or dumping a tree recurses once
// per level, and a reply nested a hundred thousand levels deep would otherwise end the
// program with a stack overflow.
//
// The reader takes linear time also for objects with thousands of members (the library's own
// parser looks up every new member among the ones already read). Members keep their order; a
// repeated key keeps its first position and takes the last value, as with the library's parser.

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

namespace DVJson {

// Deeper than any document the provider's servers or the configuration use (a handful of
// levels), far below what the stack can take.
constexpr std::size_t kMaxDepth = 64;

// The document, or nullopt and a one-line description in `error` when the text is not JSON or
// is nested deeper than `maxDepth` levels of arrays and objects.
std::optional<nlohmann::ordered_json> parse(const QByteArray &text, QString *error = nullptr,
                                            std::size_t maxDepth = kMaxDepth);

// A number from outside as an integer of type T: fractions are dropped, values beyond T's
// range saturate, NaN gives nullopt. Never undefined behaviour, whatever the double holds.
template<typename T> std::optional<T> saturatedInteger(double value)
{
    static_assert(std::numeric_limits<T>::is_integer);
    if (std::isnan(value))
        return std::nullopt;
    const double t = std::trunc(value);
    // The bounds as doubles: max() may round up (2^63-1 becomes 2^63), so compare with >=.
    if (t >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    if (t <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return static_cast<T>(t);
}

// The same for a JSON value: nullopt when it is not a number.
template<typename T> std::optional<T> saturatedInteger(const nlohmann::ordered_json &number)
{
    if (number.is_number_unsigned()) {
        const auto u = number.get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return static_cast<T>(u);
    }
    if (number.is_number_integer()) {
        const auto i = number.get<std::int64_t>();
        if constexpr (std::numeric_limits<T>::is_signed) {
            if (i > static_cast<std::int64_t>(std::numeric_limits<T>::max()))
                return std::numeric_limits<T>::max();
            if (i < static_cast<std::int64_t>(std::numeric_limits<T>::min()))
                return std::numeric_limits<T>::min();
        } else {
            if (i < 0)
                return T(0);
            if (static_cast<std::uint64_t>(i) > static_cast<std::uint64_t>(std::numeric_limits<T>::max()))
                return std::numeric_limits<T>::max();
        }
        return static_cast<T>(i);
    }
    if (number.is_number_float())
        return saturatedInteger<T>(number.get<double>());
    return std::nullopt;
}

} // namespace DVJson
