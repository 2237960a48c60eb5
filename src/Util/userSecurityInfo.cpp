#include "userSecurityInfo.h"

#include "Util/Log.h"

const QString userSecurityInfo::service = QStringLiteral("org.dorvik.app.usernamepassword");

namespace {
std::shared_ptr<Keychain> orPlatform(std::shared_ptr<Keychain> keychain)
{
    return keychain ? std::move(keychain) : Keychain::platform();
}
} // namespace

userSecurityInfo::userSecurityInfo(std::shared_ptr<Keychain> keychain, DVError *error)
{
    keychain = orPlatform(std::move(keychain));
    const auto names = keychain->accounts(service, error);
    if (!names || names->isEmpty())
        return;
    _name = names->last();
    _pwd = keychain->password(service, *_name, error);
    if (!_pwd)
        DVLOG() << "no password stored for the remembered account " << *_name;
}

bool userSecurityInfo::saveUser(const QString &name, const QString &pass, DVError *error,
                                std::shared_ptr<Keychain> keychain)
{
    return orPlatform(std::move(keychain))->save(service, name, pass, error);
}

bool userSecurityInfo::deleteSecurityInfoOfnName(const std::optional<QString> &name, DVError *error,
                                                 std::shared_ptr<Keychain> keychain)
{
    if (!name)
        return true;
    return orPlatform(std::move(keychain))->remove(service, *name, error);
}
