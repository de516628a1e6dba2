// The loops over one row for processors with SSE4.1.
#define KORIN_ROW_LOOPS sse41
#include "kernels/row_loops_body.h"
