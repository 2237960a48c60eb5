// A provider server's Date header, as the clock guard reads it, and the warning built from it.

#include "FuzzSupport.h"

#include "App/ClockGuard.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto server = ClockGuard::parseHttpDate(Fuzz::bytes(data, size));
    if (server) {
        const QDateTime local(QDate(2026, 11, 23), QTime(12, 0), Qt::UTC);
        (void)ClockGuard::evaluate(local, *server, QStringLiteral("127.0.0.1"), true);
    }
    return 0;
}
