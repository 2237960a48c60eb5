#include "SimService.h"

#include "services/AccessConcentrator.h"
#include "services/BusinessServer.h"
#include "services/DynPwdServer.h"
#include "services/HeartServer.h"
#include "services/QrCodeServer.h"
#include "services/SmsServer.h"
#include "services/TokenServer.h"
#include "services/UpdateServer.h"

namespace {
template<typename T> std::unique_ptr<SimService> make()
{
    return std::make_unique<T>();
}
} // namespace

// The services of dorvik-sim, by the name that --only, --scenario and the statistics use. A
// new service is a file under services/, plus its include and one entry here.
const std::vector<SimServiceEntry> &simServices()
{
    // One line per service.
    // clang-format off
    static const std::vector<SimServiceEntry> table = {
        {QStringLiteral("ac"), make<AccessConcentrator>},
        {QStringLiteral("business"), make<BusinessServer>},
        {QStringLiteral("dynpwd"), make<DynPwdServer>},
        {QStringLiteral("heart"), make<HeartServer>},
        {QStringLiteral("qrcode"), make<QrCodeServer>},
        {QStringLiteral("sms"), make<SmsServer>},
        {QStringLiteral("token"), make<TokenServer>},
        {QStringLiteral("update"), make<UpdateServer>},
    };
    // clang-format on
    return table;
}
