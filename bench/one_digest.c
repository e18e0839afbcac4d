/* SPDX-License-Identifier: Apache-2.0 */
/* The floor of a run that uses libcrypto: start it without its
 * configuration and make one SHA-256 digest. bench/instructions.sh compares
 * checktool's instruction counts with this program's. */
#include <openssl/crypto.h>
#include <openssl/evp.h>
int main(void)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, NULL);
    return EVP_Digest("abc", 3, out, &len, EVP_sha256(), NULL) == 1 ? 0 : 1;
}
