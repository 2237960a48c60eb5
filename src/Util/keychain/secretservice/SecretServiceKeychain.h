#pragma once

#include "../Keychain.h"

// Keychain over the freedesktop Secret Service (gnome-keyring, KWallet, KeePassXC) through
// libsecret. Items carry the attributes "service" and "account" and go to the default
// collection. Calls block; they are safe from any thread.
class SecretServiceKeychain : public Keychain
{
public:
    bool isAvailable() const override { return true; }
    std::optional<QStringList> accounts(const QString &service, DVError *error) override;
    std::optional<QString> password(const QString &service, const QString &account, DVError *error) override;
    bool save(const QString &service, const QString &account, const QString &password, DVError *error) override;
    bool remove(const QString &service, const QString &account, DVError *error) override;
};
