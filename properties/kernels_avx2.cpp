#define TESSARY_AVX2
#include "properties/kernel_loops.h"
