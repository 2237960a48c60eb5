#include "UIConf.h"

#include "Conf.h"

#include "Util/UserDefaults.h"

namespace {
// Reads one getter of the shared configuration; absent without a configuration.
template<typename Getter> auto fromConf(Getter getter) -> decltype(getter(std::declval<const Conf &>()))
{
    if (const Conf *conf = Conf::shared())
        return getter(*conf);
    return {};
}

bool linkHidden(const std::optional<QString> &host, const std::optional<QString> &caption)
{
    if (!Conf::parsesAsUrl(host))
        return true;
    return caption && caption->isEmpty();
}
} // namespace

UIConf &UIConf::shared()
{
    static UIConf instance;
    return instance;
}

std::optional<QString> UIConf::getLogo() const
{
    return fromConf([](const Conf &c) { return c.logo.getImage(); });
}

std::optional<QString> UIConf::getAppName() const
{
    return fromConf([](const Conf &c) { return c.app.getTaskBarName(); });
}

std::optional<QString> UIConf::getWichatPic() const
{
    return fromConf([](const Conf &c) { return c.app.getWeiChatPic(); });
}

std::optional<QString> UIConf::getAdAddress() const
{
    return fromConf([](const Conf &c) { return c.tab.getUrl(); });
}

bool UIConf::ifWebSiteHidden() const
{
    return linkHidden(getWebSiteHost(), getWebSiteName());
}

std::optional<QString> UIConf::getWebSiteHost() const
{
    return fromConf([](const Conf &c) { return c.app.website.getWebHost(); });
}

std::optional<QString> UIConf::getWebSiteName() const
{
    return fromConf([](const Conf &c) { return c.app.website.getWebName(); });
}

bool UIConf::ifPwdLinkHidden() const
{
    return linkHidden(getPwdLinkHost(), getPwdLinkName());
}

std::optional<QString> UIConf::getPwdLinkHost() const
{
    return fromConf([](const Conf &c) { return c.app.password.getWebHost(); });
}

std::optional<QString> UIConf::getPwdLinkName() const
{
    return fromConf([](const Conf &c) { return c.app.password.getWebName(); });
}

QString UIConf::getArea() const
{
    return Conf::area();
}

void UIConf::setArea(const QString &area)
{
    if (area != Conf::area())
        Conf::setArea(area);
}

bool UIConf::isDynamicDial() const
{
    return fromConf([](const Conf &c) { return c.login.isDynamicDial(); });
}

bool UIConf::isQrCodeDial() const
{
    return fromConf([](const Conf &c) { return c.login.isQrcCodeDial(); });
}

bool UIConf::ifQrCodeAlone() const
{
    return fromConf([](const Conf &c) { return c.login.ifQrCodeAlone(); });
}

QVariant UIConf::getLastDilType() const
{
    return UserDefaults::loadValueForKey(PrefKey::lastDialType);
}

void UIConf::setLastDialType(const QVariant &type)
{
    UserDefaults::saveValue(type, PrefKey::lastDialType);
}

bool UIConf::ifRememberInterface() const
{
    return UserDefaults::getConf(PrefKey::ifRememberInterface);
}

void UIConf::setRememberInterface(bool remember)
{
    UserDefaults::saveConf(remember, PrefKey::ifRememberInterface);
    if (!remember)
        UserConf().setDefaultInterface(std::nullopt);
}

bool UIConf::ifRememberPWd() const
{
    return UserDefaults::getConf(PrefKey::remenberpass);
}

void UIConf::setRememberPWd(bool remember)
{
    UserDefaults::saveConf(remember, PrefKey::remenberpass);
}

bool UIConf::ifAutoLogin() const
{
    return UserDefaults::getConf(PrefKey::autolog);
}

void UIConf::setAutoLogin(bool autoLogin)
{
    UserDefaults::saveConf(autoLogin, PrefKey::autolog);
}
