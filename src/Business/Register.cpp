#include "Register.h"

#include "BusinessBody.h"
#include "BusinessHttp.h"
#include "ClientVersion.h"
#include "Conf/Conf.h"
#include "Conf/ReceivedConf.h"
#include "Dial/PPPoE.h"
#include "Util/DVEnv.h"
#include "Util/Log.h"

#include <cstdio>

using nlohmann::ordered_json;

namespace {

ordered_json textOrEmpty(const QString &value)
{
    return ordered_json(value.toStdString());
}

} // namespace

Register::Register(const QString &host, PPPoE *pppoe, const std::optional<QString> &username, quint64 index)
    : Register(host, linkFactsOf(pppoe, index), username)
{}

Register::Register(const QString &host, RegisterLinkFacts link, const std::optional<QString> &username)
    : _host(host + QStringLiteral("/register.action"))
    , _link(std::move(link))
    , _username(username)
    , _version(dvClientShortVersion())
{}

RegisterLinkFacts Register::linkFactsOf(PPPoE *pppoe, quint64 index)
{
    RegisterLinkFacts facts;
    if (!pppoe)
        return facts;
    facts.clientIp = pppoe->getIP();
    const auto list = pppoe->getInterfaceList();
    if (index < list.size()) {
        facts.netcardType = list[static_cast<size_t>(index)]._displayName;
        facts.netcardMac = list[static_cast<size_t>(index)]._macAddress;
    }
    return facts;
}

void Register::main()
{
    request();
}

std::optional<ordered_json> Register::getInfo() const
{
    if (!_link.clientIp)
        return std::nullopt;
    const DVEnv &env = DVEnv::shared();
    ordered_json info = ordered_json::object();
    info["ClientIp"] = textOrEmpty(*_link.clientIp);
    info["lastConnectionTimeLong"] = env.getLastConnectionTimeLong();
    info["lastConnectionBeginTime"] = textOrEmpty(env.getLastConnectionBeginTime());
    info["lastConnectionEndTime"] = textOrEmpty(env.getLastConnectionEndTime());
    info["OSType"] = textOrEmpty(env.getOSType());
    info["OSLanguage"] = textOrEmpty(env.getOSLang());
    info["IEVersion"] = textOrEmpty(env.getSafariVersion());
    info["MemorySize"] = env.getMemorySize();
    info["CPUInfo"] = textOrEmpty(env.getCpuInfo());
    info["NetcardType"] = textOrEmpty(_link.netcardType);
    info["NetcardMac"] = textOrEmpty(_link.netcardMac);
    return info;
}

std::optional<QByteArray> Register::makeParam() const
{
    if (!_username)
        DVLOG() << "config request failed, username is nil";
    // Unlike the configuration request, an unknown version is not replaced: it ends the body
    // there, so neither the version nor the machine facts are sent.
    if (!_version)
        DVLOG() << "version is nil";
    const ordered_json body = BusinessBody::objectFromMembers({
        {"ReqType", ordered_json("RegisterReq")},
        {"User", BusinessBody::text(_username)},
        {"AreaCode", BusinessBody::text(BusinessBody::currentArea())},
        {"ClientVersion", BusinessBody::text(_version)},
        {"Infos", getInfo()},
    });
    QString why;
    auto bytes = BusinessBody::serialise(body, &why);
    if (!bytes)
        DVLOG() << "config request failed, " << why;
    return bytes;
}

void Register::request()
{
    // Once sent, the answer is handled even if the queue is cancelled meanwhile.
    const auto sent = BusinessHttp::postJson(_host, makeParam());
    if (!sent)
        return;
    const HttpReply &reply = *sent;
    if (reply.transportError) {
        DVLOG() << "Register request failed," << *reply.transportError;
        return;
    }
    if (reply.status == 200) {
        handleResponseData(reply.body);
    } else {
        // This one goes to the plain system log, not to the client's log file.
        std::fprintf(stderr, "Register request failed, http status code %d\n", reply.status);
        std::fflush(stderr);
    }
}

void Register::handleResponseData(const std::optional<QByteArray> &data)
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
    if (!json->is_object() || !json->contains("RespType") || (*json)["RespType"] != "RegisterResp") {
        DVLOG() << "config request failed, response format error";
        return;
    }
    const auto infos = json->find("infos");
    if (infos == json->end() || !infos->is_object()) {
        DVLOG() << "config request failed, infos format error";
        return;
    }
    ReceivedConf::shared().saveAreaObjectJson(*infos);
}
