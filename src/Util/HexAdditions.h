#pragma once

#include <QByteArray>
#include <QString>

// Two lower-case hexadecimal digits per byte, no separators; empty input gives empty text.
QString stringWithHexBytes(const QByteArray &bytes);
