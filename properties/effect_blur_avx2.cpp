#define TESSARY_AVX2
#include "properties/blur_loops.h"
