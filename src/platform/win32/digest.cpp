// MD5 through the system's Cryptography API: Next Generation.
#include <windows.h>
#include <bcrypt.h>

#include "platform/digest.h"

namespace velmora::platform {

bool Md5Digest(const DigestPiece* pieces, size_t count, uint8_t digest[kMd5Size], uint32_t* error) {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    NTSTATUS status = ::BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_MD5_ALGORITHM, nullptr, 0);
    if (BCRYPT_SUCCESS(status)) status = ::BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0);
    for (size_t i = 0; BCRYPT_SUCCESS(status) && i < count; ++i) {
        // Pieces beyond 4 GiB go in slices of what one call takes.
        const UCHAR* data = static_cast<const UCHAR*>(pieces[i].data);
        for (size_t left = pieces[i].size; BCRYPT_SUCCESS(status) && left > 0;) {
            ULONG slice = left > 0x40000000u ? 0x40000000u : static_cast<ULONG>(left);
            status = ::BCryptHashData(hash, const_cast<UCHAR*>(data), slice, 0);
            data += slice;
            left -= slice;
        }
    }
    if (BCRYPT_SUCCESS(status)) status = ::BCryptFinishHash(hash, digest, kMd5Size, 0);
    if (hash != nullptr) ::BCryptDestroyHash(hash);
    if (algorithm != nullptr) ::BCryptCloseAlgorithmProvider(algorithm, 0);
    if (!BCRYPT_SUCCESS(status)) {
        // STATUS_NO_MEMORY is "not enough memory"; anything else an internal failure.
        *error = static_cast<uint32_t>(status) == 0xC0000017u ? 8u : 0x80090020u;
    }
    return BCRYPT_SUCCESS(status);
}

}  // namespace velmora::platform
