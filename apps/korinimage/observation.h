#pragma once

#include <string>
#include <utility>
#include <vector>

#include "korinimage/header.h"

namespace korin::app {

// What a header says about the observation, by name; entries that are absent or
// cannot be read are left out. Unlike the getters of CHeader this reads values in
// free format too. The middle is left out where the end lies before the start.
std::vector<std::pair<std::string, std::string>> Observation(const CHeader& header);

// Tells the user on standard error when the cards put the end of the exposure before
// its start, as they do across midnight.
void WarnOfReversedTimes(const CHeader& header);

}  // namespace korin::app
