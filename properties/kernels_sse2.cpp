#include "properties/kernel_loops.h"
