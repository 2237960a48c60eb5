// The QR-code log-in server's answers: the code request and the confirmation poll.

#include "FuzzSupport.h"

#include "Business/QrCode/QrCodeModels.h"
#include "Util/DVError.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = Fuzz::bytes(data, size);
    DVError error;
    (void)QrcodeGetResult::fromJson(body, &error);
    (void)QrcodeCheckResult::fromJson(body, &error);
    return 0;
}
