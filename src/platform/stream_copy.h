#pragma once

#include <cstddef>

namespace korin::platform {

// Copies between areas that do not overlap, past the caches: the destination's old
// bytes are not fetched and nothing else is driven out. For copies that are far larger
// than the caches; small ones are better left in them.
void StreamCopy(void* to, const void* from, std::size_t size);

}  // namespace korin::platform
