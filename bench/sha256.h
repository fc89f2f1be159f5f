// SHA-256 of a byte range, for checking the benchmark images against their published sums.
//
// kovBenchSha256Hex gives the digest as 64 lower-case hex digits. Check values: "" gives
// e3b0c442...b855, "abc" gives ba7816bf...15ad. Never throws but for exhausted memory.
#ifndef KOV_BENCH_SHA256_H
#define KOV_BENCH_SHA256_H

#include <cstddef>
#include <cstdint>
#include <string>

std::string kovBenchSha256Hex(const uint8_t* data, size_t numBytes);

#endif  // KOV_BENCH_SHA256_H
