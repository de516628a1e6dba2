#pragma once

namespace korin::test {

// How many files, mappings and other things of the system this process has open.
int OpenFiles();

}  // namespace korin::test
