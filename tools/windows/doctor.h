// Tells whether the decoder works on this machine, and names what keeps it from working.
#pragma once

#include <string>

namespace tessary::tools {

// Looks at the registration, loads the DLL, decodes a small document of its own through the imaging
// component, and then the file when one is named: a document, or a program that shows none. Returns 0 when
// all is well and 1 when something is wrong, which it says.
int Doctor(const std::wstring& file);

}  // namespace tessary::tools
