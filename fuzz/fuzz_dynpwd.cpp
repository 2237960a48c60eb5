// The dynamic-password server's reply datagram (length, then AES under the decode key). The
// key is the deployment's text; the fuzzer may also vary it (after a NUL byte).

#include "FuzzSupport.h"

#include "Business/DynamicPassword.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> p = Fuzz::parts(data, size, 2);
    (void)DynamicPassword::classifyReply(p[0], QStringLiteral("dynpwd-decode-key"));
    (void)DynamicPassword::classifyReply(p[0], QString::fromUtf8(p[1]));
    return 0;
}
