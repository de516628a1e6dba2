#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "kernels/fetch_ahead.h"
#include "kernels/row_batch.h"
#include "korinimage/threads.h"

namespace korin::kernels {

// What every value of an 8- or 16-bit type becomes, computed once for a whole
// conversion: looking a sample up costs a fraction of computing it.
template <typename S, typename D>
class ValueTable {
 public:
  static constexpr bool kPossible = std::is_integral_v<S> && sizeof(S) <= 2;
  static constexpr std::int64_t kValues = std::int64_t{1} << (kPossible ? 8 * sizeof(S) : 0);

  // True where so many samples pay for the table. Threads that did not make it fetch it
  // from the caches of the one that did.
  static bool IsWorth(std::int64_t samples) {
    return kPossible && samples >= (GetThreadCount() > 1 ? 8 : 4) * kValues;
  }

  // `convert(const S*, D*, width, lines)` is the conversion itself, asked for all values
  // in rows of `width` samples, which divides their number. Null when it fails or
  // there is no memory.
  template <typename Convert>
  static std::shared_ptr<const ValueTable> Make(std::int64_t width, Convert&& convert) {
    try {
      auto table = std::make_shared<ValueTable>();
      std::vector<S> values(kValues);
      for (std::int64_t i = 0; i < kValues; ++i) {
        values[static_cast<std::size_t>(i)] = static_cast<S>(i);
      }
      if (convert(values.data(), table->m_results.data(), width, kValues / width)) return table;
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
  }

  ValueTable() : m_results(kValues) {}

  // `lines` rows of `width` samples, on the kernels' threads.
  void Convert(const S* source, D* destination, std::int64_t width, std::int64_t lines,
               std::int64_t sourceStride, std::int64_t destinationStride) const {
    ParallelRows(0, lines, width * static_cast<std::int64_t>(sizeof(S)),
                 [&](std::int64_t, std::int64_t first, std::int64_t end) {
                   for (std::int64_t y = first; y < end; ++y) {
                     LookUp(source + y * sourceStride, destination + y * destinationStride, width);
                   }
                 });
  }

 private:
  void LookUp(const S* source, D* destination, std::int64_t width) const {
    using Index = std::make_unsigned_t<S>;
    using Word = std::uint64_t;
    constexpr std::int64_t kInWord = sizeof(Word) / sizeof(S);
    constexpr std::int64_t kInLine = kCacheLine / sizeof(S);
    constexpr std::int64_t kBits = 8 * sizeof(S);
    const D* const results = m_results.data();
    // One load for several samples leaves the processor's ports to the table.
    const auto lookUpWord = [=](std::int64_t x) {
      Word word;
      std::memcpy(&word, source + x, sizeof word);
      for (std::int64_t i = 0; i < kInWord; ++i) {
        destination[x + i] = results[static_cast<Index>(word >> (kBits * i))];
      }
    };
    std::int64_t x = 0;
    for (; x + kInLine <= width; x += kInLine) {
      FetchAhead(source + x);
      for (std::int64_t i = 0; i < kInLine; i += kInWord) lookUpWord(x + i);
    }
    for (; x + kInWord <= width; x += kInWord) lookUpWord(x);
    for (; x < width; ++x) destination[x] = results[static_cast<Index>(source[x])];
  }

  std::vector<D> m_results;  // by the bits of the value
};

}  // namespace korin::kernels
