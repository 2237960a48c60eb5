// The configuration file: decryption, the JSON reader, then every field read for a few areas
// (the per-area lookup and every converting getter). The first byte chooses whether the rest
// is the encrypted file or its plain text, so that the fuzzer also reaches the reader with
// texts the cipher would rarely produce.

#include "FuzzSupport.h"

#include "Conf/Conf.h"
#include "Conf/ConfCrypt.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray rest = Fuzz::bytes(data + 1, size - 1);
    std::optional<QByteArray> plain = (data[0] & 1) ? ConfCrypt::decodeData(rest) : std::optional<QByteArray>(rest);
    if (!plain)
        return 0;
    const std::unique_ptr<Conf> conf = Conf::fromJson(*plain);
    if (!conf)
        return 0;
    for (const QString &area : {QString(), QStringLiteral("1001"), QStringLiteral("default")}) {
        Conf::setArea(area);
        for (const QString &path : Conf::fieldPaths()) {
            if (const AreaValue *v = conf->valueAt(path)) {
                (void)v->getValueOfArea();
                (void)v->text();
            }
        }
        (void)conf->accountrule.getOrder();
        (void)conf->tab.getUrl();
        (void)conf->sms.getTimeOutSeconds();
    }
    return 0;
}
