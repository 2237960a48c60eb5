#pragma once

#include <QString>
#include <QVariant>

#include <optional>

// What the views show and which switches the user has set. Holds no state: every answer is
// read from the configuration or the preferences at the moment of the call. Without a usable
// configuration the texts are absent, the log-in modes are off and the links are hidden.
class UIConf
{
public:
    static UIConf &shared();

    std::optional<QString> getLogo() const;
    std::optional<QString> getAppName() const;
    std::optional<QString> getWichatPic() const;
    // The tab page: a received address first, else the file's.
    std::optional<QString> getAdAddress() const;

    // A link is hidden when its address is not a usable URL, or when its caption is the empty
    // text. An absent caption does not hide it.
    bool ifWebSiteHidden() const;
    std::optional<QString> getWebSiteHost() const;
    std::optional<QString> getWebSiteName() const;
    bool ifPwdLinkHidden() const;
    std::optional<QString> getPwdLinkHost() const;
    std::optional<QString> getPwdLinkName() const;

    QString getArea() const;
    void setArea(const QString &area);

    bool isDynamicDial() const;
    bool isQrCodeDial() const;
    bool ifQrCodeAlone() const;

    // The last log-in mode, whatever value the log-in view chose to store.
    QVariant getLastDilType() const;
    void setLastDialType(const QVariant &type);

    bool ifRememberInterface() const;
    // Switching it off also forgets the remembered interface.
    void setRememberInterface(bool remember);
    bool ifRememberPWd() const;
    void setRememberPWd(bool remember);
    bool ifAutoLogin() const;
    void setAutoLogin(bool autoLogin);

private:
    UIConf() = default;
};
