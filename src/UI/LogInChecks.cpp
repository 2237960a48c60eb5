#include "LogInChecks.h"

#include <QRegularExpression>

std::optional<LogInCheckFailure> checkLogInInput(const QString &name, const QString &password)
{
    const QString title = QStringLiteral("提示");
    if (name.isEmpty())
        return LogInCheckFailure{title, QStringLiteral("用户名不能为空")};
    if (password.isEmpty())
        return LogInCheckFailure{title, QStringLiteral("密码不能为空")};
    // Whole-string match: one or more characters, none of them white space.
    static const QRegularExpression noBlanks(QStringLiteral("\\A\\S+\\z"),
                                             QRegularExpression::UseUnicodePropertiesOption);
    if (!noBlanks.match(name).hasMatch() || !noBlanks.match(password).hasMatch())
        return LogInCheckFailure{title, QStringLiteral("用户名、密码不能包含空格")};
    return std::nullopt;
}
