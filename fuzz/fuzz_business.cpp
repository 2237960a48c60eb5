// The business server's answers: the configuration request's (tab page and bubbles) and the
// registration's, whose infos become the received configuration of the area, read back after.
// The first byte chooses which.

#include "FuzzSupport.h"

#include "Business/BubbleCenter.h"
#include "Business/ConfigReq.h"
#include "Business/Register.h"
#include "Conf/Conf.h"
#include "Conf/ReceivedConf.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    static bool areaSet = false;
    if (!areaSet) {
        Conf::setArea(QStringLiteral("1001"));
        areaSet = true;
    }
    const QByteArray body = Fuzz::bytes(data + 1, size - 1);
    if (data[0] & 1) {
        static BubbleCenter bubbles;
        ConfigReq(QStringLiteral("http://127.0.0.1:1"), QStringLiteral("demo"), &bubbles).handleResponseData(body);
        // Let scheduled bubbles run out instead of piling up.
        QCoreApplication::processEvents();
    } else {
        const RegisterLinkFacts link{QStringLiteral("10.64.0.2"), QString(), QString()};
        Register(QStringLiteral("http://127.0.0.1:1"), link, QStringLiteral("demo")).handleResponseData(body);
        const ReceivedConf &received = ReceivedConf::shared();
        (void)received.getHeartServerAddress();
        (void)received.getUpdateServerAddress();
        (void)received.getTabHost();
    }
    return 0;
}
