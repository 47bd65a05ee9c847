// The coding and CRC kernels against each other: every level this processor
// runs (portable, AVX2 with PCLMULQDQ, AVX-512 with VPCLMULQDQ) must give
// the portable level's coded bytes and checksums for the fuzzer's bytes,
// alignment and keystream position, in place and not, with the coding and
// the checksum in one call on both sides.
//   Input: u8 alignment (modulo 64), u8 position scale, u16 position, then
//   the bytes.
#include "fuzz_util.h"
#include "kernels.h"

#include <string>
#include <vector>

namespace {

using kzfuzz::check;

struct Outcome
{
    std::string coded, inPlace, back;
    uint32_t crc, sent, received;
    bool operator==(const Outcome& o) const
    {
        return coded == o.coded && inPlace == o.inPlace && back == o.back && crc == o.crc &&
               sent == o.sent && received == o.received;
    }
};

Outcome run(const char* src, int n, int64_t position)
{
    Outcome o;
    std::string out(size_t(n) + 2, '\x5C'); // a byte of guard on each side
    kz_coding_code_at(&out[1], src, n, position);
    check(out.front() == '\x5C' && out.back() == '\x5C', "coding wrote outside the run");
    o.coded = out.substr(1, size_t(n));
    o.inPlace.assign(src, size_t(n));
    kz_coding_code_at(&o.inPlace[0], o.inPlace.data(), n, position);
    o.crc = kz_crc32(0x5A5A5A5Au, src, size_t(n));
    std::string fused(size_t(n) + 2, '\x5C');
    o.sent = kz_coding_encrypt_crc32(&fused[1], src, n, position, 0x5A5A5A5Au);
    check(fused.front() == '\x5C' && fused.back() == '\x5C', "fused coding wrote outside the run");
    o.back = fused.substr(1, size_t(n));
    o.received = kz_coding_decrypt_crc32(&o.back[0], o.back.data(), n, position, 0x5A5A5A5Au);
    return o;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kzfuzz::Input in(data, size);
    const int align = in.u8() % 64;
    const int scale = in.u8() % 41;
    const int64_t position = int64_t(in.u16()) << scale;
    const QByteArray rest = in.rest();
    // The bytes at the chosen distance from a 64-byte boundary.
    std::vector<char> buffer(size_t(rest.size() + 64 + align));
    char* src = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(buffer.data()) + 63) &
                                        ~uintptr_t(63)) +
                align;
    std::memcpy(src, rest.constData(), size_t(rest.size()));
    const int n = rest.size();

    kz_kernels_limit(KZ_KERNELS_PORTABLE);
    const Outcome portable = run(src, n, position);
    check(portable.inPlace == portable.coded, "in place differs from out of place");
    check(portable.back == std::string(src, size_t(n)), "decoding did not give the bytes back");
    const uint32_t codedCrc = kz_crc32(0x5A5A5A5Au, portable.coded.data(), size_t(n));
    check(portable.sent == codedCrc && portable.received == codedCrc,
          "the fused CRC is not the CRC of the coded bytes");
    for (int level : {KZ_KERNELS_AVX2, KZ_KERNELS_AVX512}) {
        if (kz_kernels_limit(level) != level) break;
        check(run(src, n, position) == portable, "a vector level differs from the portable one");
    }
    kzfuzz::pinKernels();
    return 0;
}
