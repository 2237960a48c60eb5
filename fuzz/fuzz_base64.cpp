// The lenient Base64 decoder that reads the heartbeat's salt scripts and dial-name parts.

#include "FuzzSupport.h"

#include "Bcom/BcomCrypt.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = Fuzz::bytes(data, size);
    (void)BcomCrypt::base64DecodeIgnoringUnknown(QString::fromUtf8(bytes));
    (void)BcomCrypt::base64DecodeIgnoringUnknown(QString::fromLatin1(bytes));
    return 0;
}
