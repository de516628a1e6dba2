#pragma once

#include <string_view>

// Names by which processes find each other when one hands an image to another.
// They are part of the wire format and never change.
namespace korin::platform {

inline constexpr std::string_view kImageMappingName = "KRNIMG_SHAREDMEM_IMAGE";
inline constexpr std::string_view kHeaderMappingName = "KRNIMG_SHAREDMEM_HEADER";
inline constexpr std::string_view kPixelMappingName = "KRNIMG_SHAREDMEM_VMIMAGE";
inline constexpr std::string_view kExchangeMappingNames[] = {kImageMappingName, kHeaderMappingName,
                                                             kPixelMappingName};
// In the temporary folder. The name fits those of swap files, so sweeps meet it.
inline constexpr std::string_view kExchangeFileName = "~QV_VMIMAGE.tmp";

}  // namespace korin::platform
