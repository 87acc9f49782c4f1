#include "frontend/registry_script.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace tessary::test {
namespace {

// One word per operation: what a registry would see, in a form that is easy to compare. "?" for no script.
std::wstring Describe(std::wstring_view script, bool perUser = false) {
    std::vector<RegistryOperation> operations;
    if (!ParseScript(script, perUser, operations)) return L"?";
    const wchar_t *const marks[] = {L"", L"!", L"~"}, *const types[] = {L"", L"=s<", L"=e<", L"=d", L"=b"};
    std::wstring text;
    for (const RegistryOperation& operation : operations) {
        const RegistryValue& value = operation.value;
        const bool leaves = operation.verb == RegistryVerb::kLeaveKey;
        text += text.empty() ? L"" : L" ";
        if (operation.verb == RegistryVerb::kDeleteKey) text += L"-";
        text += leaves ? L")" : marks[static_cast<size_t>(operation.removal)];
        if (operation.root != RegistryRoot::kNone) text += std::to_wstring(static_cast<int>(operation.root));
        text += operation.name;
        if (operation.verb == RegistryVerb::kEnterKey) text += L"(";
        text += types[static_cast<size_t>(value.type)] + value.text;
        if (value.type == RegistryValueType::kDword) text += std::to_wstring(value.number);
        for (const uint8_t byte : value.bytes) text += L"." + std::to_wstring(byte);
    }
    return text;
}

TEST(RegistryScript, ReadsKeysValuesAndMarks) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"HKCR { } hklm { HKEY_USERS }", L"~1( ) ~3( HKEY_USERS( ) )"},
        {L"HKCR\r\n{\n\tA\n\tB { C }\n}", L"~1( A( ) B( C( ) ) )"},
        {L"HKCR { forceremove A NoRemove B = s 'x' { } Delete C Delete D = s 'y' }",
         L"~1( !A( ) ~B(=s<x ) -C -D=s<y )"},
        {L"HKCU { val A = d '4294967295' val 'B C' = b '00fF' NoRemove val D = e '' }",
         L"~2( A=d4294967295 B C=b.0.255 ~D=e< )"},
        {L"HKCU { val A = D 0x1F val B = d '&hFF' val '' = s '' }", L"~2( A=d31 B=d255 =s< )"},
        // Words between apostrophes are names, never signs or keywords.
        {L"HKCU { 'val' '{' '}' 'it''s' = s '''' { } }", L"~2( val( ) {( ) }( ) it's(=s<' ) )"},
    };
    for (const auto& [script, want] : cases) EXPECT_EQ(Describe(script), want);
    EXPECT_EQ(Describe(L"HKCR { A } HKLM { B }", true), L"~2( ~Software( ~Classes( A( ) ) ) ) ~3( B( ) )");
    std::wistringstream refused(
        L"HKCR{ }|A { }|HKCR|HKCR {|HKCR { A { }|HKCR { } }|HKCR { A\\B }|HKCR { '' }|HKCR { = s 'x' }|"
        L"HKCR { A = s }|HKCR { A = q 'x' }|HKCR { A = s 'x }|HKCR { val A }|HKCR { Delete { } }|"
        L"HKCR { ForceRemove val A = s 'x' }|HKCR { val A = d '4294967296' }|HKCR { val A = d '1a' }|"
        L"HKCR { val A = d '' }|HKCR { val A = b '123' }|HKCR { val A = b '1g' }");
    for (std::wstring script; std::getline(refused, script, L'|');)
        EXPECT_EQ(Describe(script), L"?") << script;
    EXPECT_EQ(Describe(std::wstring_view(L"HKCR { A\0B }", 12)), L"?");
}

TEST(RegistryScript, ReplacesNamesBetweenPercentSigns) {
    const std::wstring path = L"C:\\50% of %MODULE%\\it's \x00E9\x4E2D\\Tessary.dll";
    const std::wstring escaped = EscapeForScript(path);
    const ScriptReplacement replacements[] = {{L"Module", escaped}, {L"Module_Raw", path}};
    const auto expand = [&](const std::wstring& script) {
        std::wstring expanded;
        return ExpandScript(script, replacements, expanded) ? expanded : L"?";
    };
    EXPECT_EQ(expand(L"%MODULE%|%module_raw%"), escaped + L"|" + path);
    EXPECT_EQ(expand(L"%%SystemRoot%% %%1%% %%MODULE%%"), L"%SystemRoot% %1% %MODULE%");
    for (const wchar_t* const script : {L"%", L"%%%", L"%Other%"}) EXPECT_EQ(expand(script), L"?");
    EXPECT_EQ(Describe(expand(L"HKCR { A = s '%MODULE%' }")), L"~1( A(=s<" + path + L" ) )");
}

TEST(RegistryScript, StaysBounded) {
    std::wstring deep, closing, many, expanded;
    std::vector<RegistryOperation> operations;
    for (size_t i = 0; i < kMaxScriptDepth; ++i) closing += L"} ", deep += i ? L"A { " : L"";
    EXPECT_TRUE(ParseScript(L"HKCR { " + deep + closing, false, operations));
    EXPECT_EQ(operations.size(), 2 * kMaxScriptDepth);
    EXPECT_FALSE(ParseScript(L"HKCR { A { " + deep + closing + L"}", false, operations));

    // Every three characters ask for 32,000.
    const std::wstring path(32000, L'x');
    const ScriptReplacement replacements[] = {{L"M", path}};
    for (int i = 0; i < 4000; ++i) many += L"%M%";
    EXPECT_FALSE(ExpandScript(many, replacements, expanded));
    EXPECT_LE(expanded.size(), kMaxScriptLength);
    EXPECT_FALSE(ParseScript(std::wstring(kMaxScriptLength + 1, L' '), false, operations));
}

}  // namespace
}  // namespace tessary::test
