/* Operations whose verification library has not landed yet: they answer
 * with a clear log line and a failure, never with a verdict. */
#include "checktool.h"
#include "oplog.h"
#include "vexa/vexa_result.h"

extern "C" uint32_t compare_crl_files(const char *, const char *, InputFileSet *)
{
    LOG_MAJOR("crl comparison is not available in this build.\n\n");
    return VEXA_ERR_GENERIC;
}

extern "C" uint32_t verify_image_with_crl(const char *, const char *, InputFileSet *)
{
    LOG_MAJOR("image verification is not available in this build.\n\n");
    return VEXA_ERR_GENERIC;
}
