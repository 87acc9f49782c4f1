#define TESSARY_AVX2
#include "properties/adjustment_loops.h"
