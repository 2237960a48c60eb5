#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// Raised by an account rule that cannot produce its part of the dial name. Whoever asked for
// the dial name gets no partial name, only this exception with its name and reason.
class DVRuleException : public std::exception
{
public:
    DVRuleException(QString name, QString reason)
        : _name(std::move(name))
        , _reason(std::move(reason))
        , _what(_reason.toUtf8())
    {}

    const QString &name() const { return _name; }
    const QString &reason() const { return _reason; }
    const char *what() const noexcept override { return _what.constData(); }

private:
    QString _name;
    QString _reason;
    QByteArray _what;
};
