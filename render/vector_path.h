// Which of the processor's vector units the loops over pixels use.
#pragma once

namespace tessary {

enum class VectorPath { kSse2, kAvx2 };

// The widest one that processor and system support; found out once, when the program starts.
VectorPath WidestVectorPath();

}  // namespace tessary
