#pragma once

#include <QString>

#include <optional>

// The checks the log-in view makes before it dials, in the order the user is told about them.
struct LogInCheckFailure
{
    QString messageText; // "提示"
    QString informativeText;
};

// The first problem with the typed account name and password, or nullopt when both may be
// dialled: the account first, then the password, then blanks anywhere in either.
std::optional<LogInCheckFailure> checkLogInInput(const QString &name, const QString &password);
