#pragma once

#include <cstdint>
#include <optional>

#include "exchange/wire_layout.h"
#include "korinimage/image.h"
#include "platform/exchange_file.h"
#include "platform/shared_mapping.h"

namespace korin::exchange {

// Samples up to which pixels go through the mapping, larger images through the
// file. Both sides must use the same figure; only tests lower it, so that small
// images take the file.
extern std::int64_t g_maxMappedSamples;

// True when the image's pixels do not go through the mapping: too many samples,
// beyond 64 bits included.
bool NeedsFile(const CImage& image);
// Bytes of all pixels, which is the size of the file; no value for an unknown
// type, a size that is not positive or a product beyond 64 bits.
std::optional<std::int64_t> PixelBytes(const CImage& image);

// Between an image's store and the float samples of the mapping. 8- and 16-bit
// pixels travel as floats of their unsigned value; what comes back is truncated
// toward zero and cut to the low bits, 0 when its magnitude is not below 2^31. The
// other integer and the double types do not travel: true, nothing moves. The order
// of work does not depend on the allocation policy, nor do the results.
// False when the mapping fails; what could not be read is 0. Both throw as the
// store does when a block cannot be brought in, or attributes and store differ.
bool SendPixels(const CImage& image, const platform::SharedMapping& mapping);
bool ReceivePixels(CImage& image, const platform::SharedMapping& mapping);

// All pixels of a known type in their own form, row after row, plane after plane.
bool SavePixels(const CImage& image, platform::ExchangeFile& file);
// Every row of the image's store is set; the rest is 0 when the file ends early.
bool LoadPixels(CImage& image, platform::ExchangeFile& file);

}  // namespace korin::exchange
