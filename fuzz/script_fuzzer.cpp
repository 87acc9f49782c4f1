// Registration scripts.
#include <cstddef>
#include <cstdint>
#include <string>

#include "frontend/registry_script.h"

using namespace tessary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::wstring script(data, data + size);
    const ScriptReplacement replacements[] = {{L"MODULE", L"a 'path' with %"}};
    std::wstring expanded;
    std::vector<RegistryOperation> operations;
    if (ExpandScript(script, replacements, expanded))
        static_cast<void>(ParseScript(expanded, size % 2, operations));
    static_cast<void>(ParseScript(script, size % 2, operations));
    return 0;
}
