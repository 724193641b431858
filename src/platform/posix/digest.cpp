// MD5 through libcrypto's message-digest interface.
#include "platform/digest.h"

#include <openssl/evp.h>

namespace velmora::platform {

bool Md5Digest(const DigestPiece* pieces, size_t count, uint8_t digest[kMd5Size], uint32_t* error) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    if (context == nullptr) {
        *error = 8;  // not enough memory
        return false;
    }
    bool ok = EVP_DigestInit_ex(context, EVP_md5(), nullptr) == 1;
    for (size_t i = 0; ok && i < count; ++i) ok = EVP_DigestUpdate(context, pieces[i].data, pieces[i].size) == 1;
    unsigned int length = 0;
    ok = ok && EVP_DigestFinal_ex(context, digest, &length) == 1 && length == kMd5Size;
    EVP_MD_CTX_free(context);
    if (!ok) *error = 0x80090020u;  // NTE_FAIL, as the Windows service reports it
    return ok;
}

}  // namespace velmora::platform
