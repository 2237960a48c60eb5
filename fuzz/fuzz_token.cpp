// The token server's answer.

#include "FuzzSupport.h"

#include "Business/TokenReuest.h"

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QString why;
    (void)TokenReuest::parseTokenInfo(Fuzz::bytes(data, size), &why);
    return 0;
}
