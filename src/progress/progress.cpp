#include "korinimage/progress.h"

namespace korin {

Progress::~Progress() = default;

}  // namespace korin
