// Small pictures as text: "#../.#." are two rows of three pixels.
#pragma once

#include <cstdint>
#include <map>
#include <sstream>
#include <string>

namespace tessary::test {

// A letter for each pixel that the legend names, the number of any other. Empty when there are none.
template <class Pixels>
std::string TextOf(const Pixels& pixels, size_t width, const std::map<uint32_t, char>& legend) {
    std::ostringstream text;
    size_t i = 0;
    for (const uint32_t pixel : pixels) {
        if (i != 0 && i % width == 0) text << '/';
        const auto named = legend.find(pixel);
        named != legend.end() ? text << named->second : text << '<' << std::hex << pixel << '>';
        ++i;
    }
    return text.str();
}

}  // namespace tessary::test
