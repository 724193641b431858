// MD5 message digests (RFC 1321) from the system's cryptography: OpenSSL's
// libcrypto on Linux, CNG on Windows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::platform {

constexpr size_t kMd5Size = 16;

// One run of bytes of a digested message.
struct DigestPiece {
    const void* data;
    size_t size;
};

// The MD5 digest of the pieces taken one after the other. False with the
// system's error code when the cryptography service fails.
bool Md5Digest(const DigestPiece* pieces, size_t count, uint8_t digest[kMd5Size], uint32_t* error);

}  // namespace velmora::platform
