// The dial-name rules over arbitrary account names, shared keys and MACs. Parts between NUL
// bytes: name, rules (comma-separated), prefix, suffix, key, MAC, time in seconds.

#include "FuzzSupport.h"

#include "AccountRule/DVAccountRule.h"
#include "AccountRule/DVRuleException.h"

#include <QDateTime>

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> p = Fuzz::parts(data, size, 7);
    const auto text = [](const QByteArray &b) -> std::optional<QString> {
        return b == "-" ? std::nullopt : std::optional<QString>(QString::fromUtf8(b));
    };
    const QStringList rules = QString::fromUtf8(p[1]).split(QLatin1Char(','));
    // Any 64-bit time, also far outside the calendar.
    qint64 time = p[6].toLongLong();
    const qint64 start = qBound<qint64>(-62135596800LL, time, 253402300799LL);
    auto clock = std::make_shared<ManualClock>(QDateTime::fromSecsSinceEpoch(start, Qt::UTC));
    DVAccountRule rule(rules, text(p[2]), text(p[3]), text(p[4]), &time, text(p[5]), clock);
    try {
        (void)rule.getAccountFromName(text(p[0]));
    } catch (const DVRuleException &) {
    }
    return 0;
}
