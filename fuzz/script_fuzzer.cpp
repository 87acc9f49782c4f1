// Registration scripts.
#include "frontend/registry_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::wstring script(data, data + size);
    const tessary::ScriptReplacement replacements[] = {{L"MODULE", L"a 'path' with %"}};
    std::wstring expanded;
    std::vector<tessary::RegistryOperation> operations;
    if (!tessary::ExpandScript(script, replacements, expanded)) expanded = script;
    static_cast<void>(tessary::ParseScript(expanded, size % 2, operations));
    return 0;
}
