#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable Qt values in GoogleTest failure messages.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QByteArray &b, std::ostream *os)
{
    *os << '"' << b.toStdString() << "\" (hex " << b.toHex().toStdString() << ')';
}
inline void PrintTo(const QStringList &l, std::ostream *os)
{
    *os << '[' << l.join(QStringLiteral(", ")).toStdString() << ']';
}
inline std::ostream &operator<<(std::ostream &os, const QString &s)
{
    return os << '"' << s.toStdString() << '"';
}
