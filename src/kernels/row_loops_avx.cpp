// The loops over one row for processors with AVX.
#define KORIN_ROW_LOOPS avx
#include "kernels/row_loops_body.h"
