#include "LoginInput.h"

#include <QRegularExpression>

std::optional<QString> checkLoginInput(const QString &name, const QString &password)
{
    if (name.isEmpty())
        return QStringLiteral("用户名不能为空");
    if (password.isEmpty())
        return QStringLiteral("密码不能为空");
    // A whole-string match: one or more characters, none of them white space.
    static const QRegularExpression noSpace(QRegularExpression::anchoredPattern(QStringLiteral("\\S+")));
    if (!noSpace.match(name).hasMatch() || !noSpace.match(password).hasMatch())
        return QStringLiteral("用户名、密码不能包含空格");
    return std::nullopt;
}
