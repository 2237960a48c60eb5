#include "ConfigReq.h"

#include "BubbleCenter.h"
#include "BusinessBody.h"
#include "BusinessHttp.h"
#include "ClientVersion.h"
#include "Conf/Conf.h"
#include "Util/Log.h"

using nlohmann::ordered_json;

namespace {

QString dumpForLog(const ordered_json &value)
{
    return QString::fromStdString(value.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

} // namespace

ConfigReq::ConfigReq(const QString &host, const std::optional<QString> &username, BubbleCenter *bubbles)
    : _host(host + QStringLiteral("/config.action"))
    , _username(username)
    , _version(dvClientShortVersion())
    , _bubbles(bubbles ? bubbles : BubbleCenter::defaultCenter())
{}

void ConfigReq::main()
{
    request();
}

std::optional<QByteArray> ConfigReq::makeParam() const
{
    if (!_username)
        DVLOG() << "config request failed, username is nil";
    std::optional<QString> version = _version;
    if (!version) {
        DVLOG() << "version is nil";
        version = QString();
    }
    const Conf *conf = Conf::shared();
    const ordered_json body = BusinessBody::objectFromMembers({
        {"ReqType", ordered_json("ConfigReq")},
        {"User", BusinessBody::text(_username)},
        {"AreaCode", BusinessBody::text(BusinessBody::currentArea())},
        {"ClientVersion", BusinessBody::text(version)},
        {"router", BusinessBody::text(conf ? conf->route.getVersion() : std::nullopt)},
    });
    QString why;
    auto bytes = BusinessBody::serialise(body, &why);
    if (!bytes)
        DVLOG() << "config request failed, " << why;
    return bytes;
}

void ConfigReq::request()
{
    // Once sent, the answer is handled even if the queue is cancelled meanwhile.
    const auto sent = BusinessHttp::postJson(_host, makeParam());
    if (!sent)
        return;
    const HttpReply &reply = *sent;
    if (reply.transportError) {
        DVLOG() << "config request failed," << *reply.transportError;
        return;
    }
    if (reply.status == 200)
        handleResponseData(reply.body);
    else
        DVLOG() << "config request failed, http status code " << reply.status;
}

void ConfigReq::handleResponseData(const std::optional<QByteArray> &data)
{
    if (!data) {
        DVLOG() << "config request failed, response data is nil";
        return;
    }
    QString why;
    const auto json = BusinessBody::parse(*data, &why);
    if (!json) {
        DVLOG() << "config request failed, " << why;
        return;
    }
    if (!json->is_object())
        return; // not an answer of ours at all: no "RespType"
    const auto respType = json->find("RespType");
    if (respType == json->end() || *respType != "ConfigResp")
        return;
    const auto infos = json->find("Infos");
    if (infos == json->end() || !infos->is_object()) {
        DVLOG() << "config request failed, response no infos";
        return;
    }

    // The check looks under "Infos" but the entries come from the top level: the server sends
    // both, and only an answer that carries both may move the tab page.
    const auto infosTab = infos->find("TabConfig");
    if (infosTab == infos->end() || !infosTab->is_array()) {
        DVLOG() << "config request,no Tab Config";
    } else {
        const auto topTab = json->find("TabConfig");
        if (topTab != json->end() && topTab->is_array()) {
            for (const auto &entry : *topTab) {
                if (!entry.is_object() || !entry.contains("hiturl"))
                    continue;
                const auto &hiturl = entry["hiturl"];
                if (!hiturl.is_string()) {
                    DVLOG() << "config request, tab url is not text: " << dumpForLog(hiturl);
                    break;
                }
                if (const Conf *conf = Conf::shared())
                    conf->tab.setTabUrl(QString::fromStdString(hiturl.get<std::string>()));
                break;
            }
        }
    }

    const auto bubbles = infos->find("BubbleConfig");
    if (bubbles == infos->end() || !bubbles->is_array()) {
        DVLOG() << "no bubble found";
        return;
    }
    for (const auto &bubble : *bubbles)
        popBubbleWithDictionary(bubble);
}

void ConfigReq::popBubbleWithDictionary(const ordered_json &bubble)
{
    const auto textOf = [&](const char *key) -> std::optional<QString> {
        if (!bubble.is_object() || !bubble.contains(key) || !bubble[key].is_string())
            return std::nullopt;
        return QString::fromStdString(bubble[key].get<std::string>());
    };
    const auto type = textOf("type");
    const auto caption = textOf("caption");
    const auto contents = textOf("contents");
    const auto hiturl = textOf("hiturl");
    std::optional<double> delay;
    if (bubble.is_object() && bubble.contains("delaytime")) {
        const auto &d = bubble["delaytime"];
        if (d.is_number())
            delay = d.get<double>();
        else if (d.is_string())
            delay = QString::fromStdString(d.get<std::string>()).toDouble();
    }
    if (!type || !caption || !contents || !hiturl || !delay) {
        DVLOG() << "pop bubble failed, data is " << dumpForLog(bubble);
        return;
    }

    UserNotification n;
    n.title = *caption;
    n.deliveryDelaySeconds = *delay;
    if (*type == QLatin1String("text")) {
        // A text bubble carries no user information: activating it only dismisses it.
        n.informativeText = *contents;
    } else if (*type == QLatin1String("web")) {
        n.userInfo = {{QStringLiteral("type"), QStringLiteral("web")}, {QStringLiteral("url"), *hiturl}};
        n.informativeText = *hiturl;
        n.hasActionButton = true;
        n.actionButtonTitle = QStringLiteral("详细");
    } else {
        DVLOG() << "pop bubble failed, wrong type: " << *type;
        return;
    }
    _bubbles->scheduleNotification(n);
}
