#pragma once

// Everything an application needs to read and write image files.
#include "korinimage/io/file_error.h"
#include "korinimage/io/fits_file.h"
#include "korinimage/io/png_file.h"
