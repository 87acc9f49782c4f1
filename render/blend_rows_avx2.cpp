#define TESSARY_AVX2
#include "render/blend_loops.h"
