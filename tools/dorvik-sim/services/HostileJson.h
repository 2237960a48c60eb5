#pragma once

#include <QByteArray>

// Hostile answers for the "deep" fault scenarios: arrays nested far deeper than any client
// may follow. Written as text, never built as a tree: the simulator itself would overflow
// its stack dumping such a tree.
namespace HostileJson {

constexpr int kLevels = 100000;

inline QByteArray deepArrays(int levels = kLevels)
{
    QByteArray text(levels, '[');
    return text.append(levels, ']'); // append, not +: the header then needs no string builder
}

// `body` (compact JSON text) with the string member value "\"@deep@\"" replaced by the arrays.
inline QByteArray withDeepValue(QByteArray body)
{
    return body.replace(QByteArrayLiteral("\"@deep@\""), deepArrays());
}

} // namespace HostileJson
