/* Included before everything else in builds of net-snmp before 5.8. They allocate digest contexts themselves, which
   today's OpenSSL no longer allows. Here a context is cleared memory that is large enough. */
#define _GNU_SOURCE 1
#include <openssl/evp.h>
#include <string.h>

struct evp_md_ctx_st {
    void* room[32]; /* OpenSSL 3.0 needs 9 */
};

#undef EVP_MD_CTX_init
#define EVP_MD_CTX_init(context) (memset((context), 0, sizeof *(context)), 1)
#define EVP_DigestInit(context, digest) (EVP_MD_CTX_init(context), EVP_DigestInit_ex((context), (digest), NULL))
#define EVP_MD_CTX_cleanup EVP_MD_CTX_reset
