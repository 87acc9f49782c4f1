// Gives the framework's interface ids a definition: not every import library has all of them.
#include <initguid.h>

#include "frontend/codec.h"
