#include "kernels/byte_copy.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kernels/parallel.h"

namespace korin::test {
namespace {

TEST(ByteCopy, EveryByteArrivesAndNoOther) {
  constexpr std::int64_t kSize = (5 << 20) + 12345;
  constexpr std::int64_t kEdge = 100;
  std::vector<BYTE> source(kSize + 2 * kEdge);
  for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<BYTE>(i * 7 + i / 4099);
  std::vector<BYTE> copy(source.size());
  for (const bool streamed : {true, false}) {
    for (const auto& [from, to] : {std::pair(0, 0), {1, 63}, {33, 5}, {64, 16}}) {
      std::fill(copy.begin(), copy.end(), BYTE{0xCC});
      // Two areas side by side, the second one first, and a few bytes.
      const BYTE* const first = source.data() + from;
      BYTE* const place = copy.data() + to;
      CopyOnThreads({{place + kSize / 2, first + kSize / 2, kSize - kSize / 2 - 3},
                     {place, first, kSize / 2},
                     {place + kSize - 3, first + kSize - 3, 3},
                     {place, first, 0}},
                    streamed);
      EXPECT_TRUE(std::equal(first, first + kSize, place)) << from << " to " << to;
      const auto untouched = [](BYTE byte) { return byte == 0xCC; };
      EXPECT_TRUE(std::all_of(copy.data(), place, untouched));
      EXPECT_TRUE(std::all_of(place + kSize, copy.data() + copy.size(), untouched));
    }
  }
  CopyOnThreads({}, true);
}

}  // namespace
}  // namespace korin::test
