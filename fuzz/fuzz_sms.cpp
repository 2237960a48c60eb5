// The SMS verification server's XML reply.

#include "FuzzSupport.h"

#include "Business/SMSVerify.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)SMSVerify::parseReply(Fuzz::bytes(data, size));
    return 0;
}
