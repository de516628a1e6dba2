#pragma once

#include <cstdint>

// What the memory allows: plain vector loops over the bytes that an operation must
// read and write, on as many threads.
namespace korin::bench {

// Reads every byte.
void ReadAll(const void* from, std::int64_t bytes, int threads);
// Reads `bytes` and writes `written` of them, in order.
void ReadAndWrite(const void* from, std::int64_t bytes, void* to, std::int64_t written,
                  int threads);
void CopyAll(const void* from, void* to, std::int64_t bytes, int threads);  // memcpy
void SetAll(void* to, std::int64_t bytes, int threads);                     // memset

}  // namespace korin::bench
