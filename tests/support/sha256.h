// SHA-256 of bytes as lower-case hexadecimal digits, to compare pictures with what others made of them.
#pragma once

#include <string>

#include "tests/support/document_builder.h"

namespace tessary::test {

std::string Sha256(const Bytes& message);

}  // namespace tessary::test
