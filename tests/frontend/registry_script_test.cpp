#include "frontend/registry_script.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

namespace tessary::test {
namespace {

// One word per operation: what a registry would see, in a form that is easy to compare.
std::wstring Describe(const std::vector<RegistryOperation>& operations) {
    std::wstring text;
    for (const RegistryOperation& operation : operations) {
        const wchar_t* const marks[] = {L"", L"!", L"~"};
        text += text.empty() ? L"" : L" ";
        if (operation.verb == RegistryVerb::kLeaveKey) text += L")";
        if (operation.verb == RegistryVerb::kDeleteKey) text += L"-";
        if (operation.verb != RegistryVerb::kLeaveKey) text += marks[static_cast<size_t>(operation.removal)];
        if (operation.root != RegistryRoot::kNone) text += std::to_wstring(static_cast<int>(operation.root));
        text += operation.name;
        if (operation.verb == RegistryVerb::kEnterKey) text += L"(";
        switch (operation.value.type) {
        case RegistryValueType::kNone: break;
        case RegistryValueType::kString: text += L"=s<" + operation.value.text + L">"; break;
        case RegistryValueType::kExpandString: text += L"=e<" + operation.value.text + L">"; break;
        case RegistryValueType::kDword: text += L"=d" + std::to_wstring(operation.value.number); break;
        case RegistryValueType::kBinary:
            text += L"=b";
            for (const uint8_t byte : operation.value.bytes) text += L"." + std::to_wstring(byte);
            break;
        }
    }
    return text;
}

TEST(RegistryScript, ReadsKeysValuesAndMarks) {
    const struct {
        const wchar_t *script, *want;
        bool perUser = false;
    } cases[] = {
        {L"", L""},
        {L"HKCR { } hklm { HKEY_USERS }", L"~1( ) ~3( HKEY_USERS( ) )"},
        {L"HKCR{ }", nullptr},
        {L"HKCR\r\n{\n\tA\n\tB { C }\n}", L"~1( A( ) B( C( ) ) )"},
        {L"HKCR { forceremove A NoRemove B = s 'x' { } Delete C Delete D = s 'y' }",
         L"~1( !A( ) ~B(=s<x> ) -C -D=s<y> )"},
        {L"HKCU { val A = d '4294967295' val 'B C' = b '00fF' NoRemove val D = e '' }",
         L"~2( A=d4294967295 B C=b.0.255 ~D=e<> )"},
        {L"HKCU { val A = D 0x1F val B = d '&hFF' val '' = s '' }", L"~2( A=d31 B=d255 =s<> )"},
        // Words between apostrophes are names, never signs or keywords.
        {L"HKCU { 'val' '{' '}' 'it''s' = s '''' { } }", L"~2( val( ) {( ) }( ) it's(=s<'> ) )"},
        {L"HKCU { {AB-1} = s '{CD-2}' { {EF} } }", L"~2( {AB-1}(=s<{CD-2}> {EF}( ) ) )"},
        {L"HKCR { A } HKLM { B }", L"~2( ~Software( ~Classes( A( ) ) ) ) ~3( B( ) )", true},
        // What is no script.
        {L"A { }", nullptr},
        {L"HKCR", nullptr},
        {L"HKCR {", nullptr},
        {L"HKCR { A { }", nullptr},
        {L"HKCR { } }", nullptr},
        {L"HKCR { A\\B }", nullptr},
        {L"HKCR { '' }", nullptr},
        {L"HKCR { = s 'x' }", nullptr},
        {L"HKCR { A = s }", nullptr},
        {L"HKCR { A = q 'x' }", nullptr},
        {L"HKCR { A = s 'x }", nullptr},
        {L"HKCR { val A }", nullptr},
        {L"HKCR { ForceRemove val A = s 'x' }", nullptr},
        {L"HKCR { Delete { } }", nullptr},
        {L"HKCR { val A = d '4294967296' }", nullptr},
        {L"HKCR { val A = d '1a' }", nullptr},
        {L"HKCR { val A = d '' }", nullptr},
        {L"HKCR { val A = b '123' }", nullptr},
        {L"HKCR { val A = b '1g' }", nullptr},
    };
    for (const auto& test : cases) {
        std::vector<RegistryOperation> operations;
        const bool valid = ParseScript(test.script, test.perUser, operations);
        ASSERT_EQ(valid, test.want != nullptr) << testing::PrintToString(std::wstring(test.script));
        if (!valid) continue;
        EXPECT_EQ(Describe(operations), test.want);
    }
    std::vector<RegistryOperation> operations;
    EXPECT_FALSE(ParseScript(std::wstring(L"HKCR { A\0B }", 13), false, operations));
}

TEST(RegistryScript, ReplacesNamesBetweenPercentSigns) {
    const std::wstring path = L"C:\\50% of %MODULE%\\it's \x00E9\x4E2D\\Tessary.dll";
    const std::wstring escaped = EscapeForScript(path);
    const ScriptReplacement replacements[] = {{L"Module", escaped}, {L"Module_Raw", path}};
    const struct {
        std::wstring script, want;
    } cases[] = {
        {L"%MODULE%|%module_raw%", escaped + L"|" + path},
        {L"%%SystemRoot%% %%1%%", L"%SystemRoot% %1%"},
        {L"%%MODULE%%", L"%MODULE%"},
        {L"%", L"?"},
        {L"%%%", L"?"},
        {L"%Other%", L"?"},
    };
    for (const auto& test : cases) {
        std::wstring expanded;
        EXPECT_EQ(ExpandScript(test.script, replacements, expanded) ? expanded : L"?", test.want);
    }
    std::wstring expanded;
    std::vector<RegistryOperation> operations;
    ASSERT_TRUE(ExpandScript(L"HKCR { A = s '%MODULE%' }", replacements, expanded));
    ASSERT_TRUE(ParseScript(expanded, false, operations));
    EXPECT_EQ(operations.at(1).value.text, path);
}

TEST(RegistryScript, StaysBoundedWithHostileText) {
    std::wstring deep, expanded;
    std::vector<RegistryOperation> operations;
    for (size_t i = 0; i < kMaxScriptDepth - 1; ++i) deep += L"A { ";
    std::wstring closing(2 * kMaxScriptDepth, L' ');
    for (size_t i = 0; i < kMaxScriptDepth; ++i) closing[2 * i] = L'}';
    EXPECT_TRUE(ParseScript(L"HKCR { " + deep + closing, false, operations));
    EXPECT_EQ(operations.size(), 2 * kMaxScriptDepth);
    EXPECT_FALSE(ParseScript(L"HKCR { A { " + deep + closing + L"}", false, operations));

    // Every three characters ask for 32,000.
    const std::wstring path(32000, L'x');
    const ScriptReplacement replacements[] = {{L"M", path}};
    std::wstring many;
    for (int i = 0; i < 4000; ++i) many += L"%M%";
    EXPECT_FALSE(ExpandScript(many, replacements, expanded));
    EXPECT_LE(expanded.size(), kMaxScriptLength);
    EXPECT_FALSE(ParseScript(std::wstring(kMaxScriptLength + 1, L' '), false, operations));

    // Texts of the largest size that a reader with a quadratic step would not finish.
    const auto start = std::chrono::steady_clock::now();
    for (const wchar_t* const pattern : {L"A ", L"''", L"'", L"{ ", L"} ", L"A = s 'x' ", L"%%", L"val "}) {
        std::wstring text = L"HKCR { ";
        while (text.size() < kMaxScriptLength - 16) text += pattern;
        (void)ParseScript(text, true, operations);
        (void)ExpandScript(text, replacements, expanded);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(RegistryScript, SurvivesRandomWords) {
    const wchar_t* const words[] = {L"HKCR", L"{",           L"}",        L"=",      L"s", L"'x'",
                                    L"val",  L"ForceRemove", L"NoRemove", L"Delete", L"'", L"%",
                                    L"%M%",  L"b",           L"d",        L"12",     L"\n"};
    const ScriptReplacement replacements[] = {{L"M", L"a'b"}};
    std::mt19937 random(1);
    size_t valid = 0;
    for (int round = 0; round < 20000; ++round) {
        std::wstring text = L"HKCR { ";
        for (auto i = random() % 12; i > 0; --i)
            text += std::wstring(words[random() % std::size(words)]) + L" ";
        text += L"}";
        std::wstring expanded;
        std::vector<RegistryOperation> operations;
        if (!ExpandScript(text, replacements, expanded)) continue;
        if (!ParseScript(expanded, false, operations)) continue;
        ++valid;
        size_t depth = 0;
        for (const RegistryOperation& operation : operations) {
            if (operation.verb == RegistryVerb::kEnterKey) ++depth;
            if (operation.verb != RegistryVerb::kLeaveKey) continue;
            ASSERT_GT(depth--, 0u);
        }
        ASSERT_EQ(depth, 0u);
    }
    EXPECT_GT(valid, 100u);
}

}  // namespace
}  // namespace tessary::test
