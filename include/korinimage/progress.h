#pragma once

#include <string>

#include "korinimage/export.h"

namespace korin {

// Receives the advance of a long operation. Held by shared pointer; an empty
// pointer means that nothing is reported.
//
// Thread rule: the library calls a sink only from the thread that called the
// operation, in order, and never while it holds a lock of its own. A sink may
// therefore use the library, but must not change the image that is being worked
// on. A sink may throw: the operation then rolls back and the exception passes.
class KORINIMAGE_API Progress {
 public:
  Progress() = default;
  Progress(const Progress&) = default;
  Progress& operator=(const Progress&) = default;
  virtual ~Progress();

  // An operation begins.
  virtual void initialize() = 0;
  // Advance in percent. Values normally run from 0 to 100; copying an image
  // reports one block ahead and may pass 100. Receivers clamp.
  virtual void update(int percent) = 0;
  // The operation has ended, normally or not.
  virtual void finalize() = 0;
  // Shows a line of text.
  virtual void message(const std::wstring& text) = 0;
  // Poll: true when the user asked to cancel. The library's own operations only
  // report; a caller that polls stops its own work.
  virtual bool escape() = 0;
};

}  // namespace korin
