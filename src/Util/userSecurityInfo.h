#pragma once

#include "Util/DVError.h"
#include "keychain/Keychain.h"

#include <QString>

#include <memory>
#include <optional>

// The remembered account name and password, kept as one keychain item per account under the
// application's service. Construction reads the store: of all accounts under the service the
// last one the store lists wins.
class userSecurityInfo
{
public:
    // The application's keychain service.
    static const QString service;

    // Reads the remembered account. Nothing stored, or a store that cannot be read (then
    // `error` says why), leaves both absent. A null keychain means the platform's.
    explicit userSecurityInfo(std::shared_ptr<Keychain> keychain = nullptr, DVError *error = nullptr);

    std::optional<QString> loadUser() const { return _name; }
    std::optional<QString> loadPass() const { return _pwd; }

    // Stores the password for the account, creating or replacing its item.
    static bool saveUser(const QString &name, const QString &pass, DVError *error,
                         std::shared_ptr<Keychain> keychain = nullptr);
    // Deletes the account's item; an absent name does nothing.
    static bool deleteSecurityInfoOfnName(const std::optional<QString> &name, DVError *error,
                                          std::shared_ptr<Keychain> keychain = nullptr);

private:
    std::optional<QString> _name;
    std::optional<QString> _pwd;
};
