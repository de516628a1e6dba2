#pragma once

#include <memory>

#include "korinimage/export.h"
#include "korinimage/image.h"
#include "korinimage/vm_manager.h"

// Hands one image to another process of the same user: its attributes, its header
// and, if wanted, its pixels.
//
// Both processes call CreateFileMappings; then one calls WriteSharedMemory and,
// when that has returned, the other ReadSharedMemory; in the end both call
// CloseMappingHandles. That the reader waits for the writer is for the application
// to arrange. An exchange lives as long as one of the processes keeps it open:
// there is one per user (on Windows, per session). What a killed process left is
// cleared by the next that opens it or starts a memory manager.
//
// Pixels. Up to 75,030,000 samples travel as 32-bit floats through memory: float
// images as they are, 8- and 16-bit pixels as their unsigned value, signed 16-bit
// ones too (a reader that receives the signed flag sees the signed values again).
// The receiver truncates toward zero and keeps the low 8 or 16 bits; NaN and
// magnitudes of 2^31 and more become 0. Images of 32-bit integers and of doubles
// carry no pixels this way; their receiver gets zeros. Images of more samples
// travel in their own type, bit for bit, through a temporary file.
//
// The reader trusts nothing that it finds: contents that make no image give 0 and
// leave the image as it was. When pixels fail after that, the attributes and header
// are those received, and the image holds zeros or what it held before; either way
// it is valid.
//
// Every member answers 1 for success and 0 for any failure, reports nothing and
// never throws. Thread rule: all members from one thread. In a forked child they
// must not be used before CloseMappingHandles was called there.
class KORINIMAGE_API CSharedMem {
 public:
  CSharedMem();
  virtual ~CSharedMem();

  // Opens the exchange, with `withPixels` (nonzero) the pixels' part as well. What
  // is open stays open. On failure the parts opened so far stay open, except that a
  // failure of the pixels' part closes all. Waits a second at most for other
  // processes.
  static int CreateFileMappings(int withPixels);
  // Closes the exchange; may be called at any time. A temporary file that waits for
  // its reader stays, but may then be cleared away as soon as no process keeps the
  // exchange open.
  static void CloseMappingHandles();

  // Writes the image for a reader; with `withPixels` (nonzero) its pixels. An image
  // of more than 3 planes is refused before anything is written. The first 256
  // cards travel, and the first 255 UTF-16 units of each text. The colour-filter
  // pattern, gain and temperature of the header do not.
  static int WriteSharedMemory(const CImage* image, int withPixels);
  // Makes the image what a writer wrote: attributes, levels, header fields; cards
  // are appended to those that the image has. With `withPixels` (nonzero) a new
  // store on `manager` takes the pixels, else the store stays untouched and may
  // then not fit the attributes.
  static int ReadSharedMemory(const std::shared_ptr<CVmManager>& manager, CImage* image,
                              int withPixels);

  // Writes the pixels alone to the temporary file, in their own type, replacing a
  // file of the same user. The exchange must be open.
  static int WriteSharedFile(const CImage* image);
  // Gives the image, whose type and size are set, a new store on `manager` with the
  // pixels of the temporary file, and removes the file. A file that is too short
  // gives 0 and stays.
  static int ReadSharedFile(const std::shared_ptr<CVmManager>& manager, CImage* image);
};

namespace korin {

// True while some living process of the user, this one included, has the exchange
// open. Waits for nobody and opens nothing; any thread may ask.
KORINIMAGE_API bool IsExchangeOpen() noexcept;

}  // namespace korin
