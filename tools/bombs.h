// Documents that ask for as much time or memory as their bytes can.
#pragma once

#include <functional>
#include <string>

#include "tools/document_builder.h"

namespace tessary::tools {

using Writer = std::function<void(const std::string& name, const test::Bytes& bytes)>;

// None is larger than a mebibyte.
void WriteBombs(const Writer& write);

}  // namespace tessary::tools
