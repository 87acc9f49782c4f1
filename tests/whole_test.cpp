// Whole documents: real ones, those made to take much time and memory, and many at once.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "frontend/document_pixels.h"
#include "properties/effect_records.h"
#include "render/render.h"
#include "tests/support/document_builder.h"
#include "tools/sample_blocks.h"

namespace tessary::test {
namespace {

namespace fs = std::filesystem;

// The lines of a table by column name, the head line too.
std::vector<std::map<std::string, std::string>> TableRows(const fs::path& path) {
    std::ifstream file(path);
    std::vector<std::string> names;
    std::vector<std::map<std::string, std::string>> rows;
    for (std::string line, cell; std::getline(file, line);) {
        rows.emplace_back();
        std::istringstream cells(line);
        for (size_t i = 0; std::getline(cells, cell, '\t'); ++i) {
            if (i == names.size()) names.push_back(cell);
            rows.back()[names[i]] = cell;
        }
    }
    return rows;
}

// Of the picture's red, green and blue bytes, in hexadecimal digits; empty where CMake cannot be called.
std::string Sha256(const PsdDocument& document) {
    static const std::string path =
        (fs::temp_directory_path() / ("tessary" + std::to_string(std::random_device{}()))).string();
    std::ofstream file(path, std::ios::binary);
    for (const uint32_t pixel : document.mergedPixels.span()) {
        for (const int shift : {16, 8, 0}) file.put(static_cast<char>(pixel >> shift));
    }
    file.close();
    std::string digest;
    if (!std::system(("cmake -E sha256sum " + path + " > " + path + ".sum").c_str()))
        std::ifstream(path + ".sum") >> digest;
    fs::remove(path);
    fs::remove(path + ".sum");
    return digest;
}

// Real documents, written by programs outside this project. They are not part of it: without them this test
// is skipped. What others made of these documents takes the white matte out of the colours, which the file
// does not store.
TEST(Corpus, DocumentsAreWhatOtherProgramsRead) {
    const fs::path folder = TESSARY_CORPUS;
    if (folder.empty())
        GTEST_SKIP() << "to run it, configure with -DTESSARY_CORPUS=FOLDER, see CONTRIBUTING.md";
    ASSERT_TRUE(fs::exists(folder / "expected.tsv")) << folder;
    const auto open = [&](const std::string& name, uint32_t mode) {
        std::ifstream file(folder / "files" / name, std::ios::binary);
        return OpenBytes({std::istreambuf_iterator<char>(file), {}}, mode);
    };
    const bool canHash = !Sha256({}).empty();  // else CMake is not in the path
    size_t agreed = 0;
    for (auto& row : TableRows(folder / "expected.tsv")) {
        if (row["verdict"] != "agreed" || !canHash) continue;
        ++agreed;
        const Opened opened = open(row["file"], kReadMerged);
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << row["file"];
        EXPECT_EQ(Sha256(*opened.document), row["sha256_rgb"]) << row["file"];
    }
    EXPECT_EQ(agreed != 0, canHash);
    // Some are damaged in ways that a catalogue does not tell.
    std::vector<std::string> refused;
    size_t read = 0;
    for (auto& row : TableRows(folder / "catalog.tsv")) {
        const int layers = std::abs(std::atoi(row["layers"].c_str()));
        if (layers == 0 || row["kind"] == "damaged-or-refused") continue;
        const Opened opened = open(row["file"], kReadEverything);
        // Masks with density and feather are refused, and layers of 32 bits are passed over.
        bool isSound = true;
        std::istringstream sizes(row["mask_sizes"]);
        for (int size; sizes >> size;) isSound = isSound && (size == 0 || size == 20 || size == 36);
        if (!isSound || !opened.document) {
            EXPECT_FALSE(opened.document) << row["file"];
            if (isSound) refused.push_back(row["file"]);
            continue;
        }
        ++read;
        EXPECT_EQ(opened.document->layerCount, row["lr_block"] != "Lr32" ? layers : 0) << row["file"];
    }
    EXPECT_LE(50 * refused.size(), read) << testing::PrintToString(refused);
}

// Small files that claim, repeat or nest much: they are refused or read without more memory than their bytes
// are worth, and what costs them nothing is not drawn without end.
LayerBuilder Layer(int32_t side) { return LayerBuilder({0, 0, side, side}).ChannelData(-1, {0, 0}); }

#if defined(TESSARY_FAULT_INJECTION)
DocumentBuilder Small(uint32_t side = 8) { return DocumentBuilder(kColorRgb, 8, 3, side, side); }

TEST(Bombs, AreRefusedOrReadInLittleMemory) {
    constexpr auto kRefused = PsdReadResult::kOutOfMemory, kRead = PsdReadResult::kOk;
    constexpr uint64_t kLittle = 4u << 20;
    Bytes noRuns(100000, 0x80), earlyEnd = ByteWriter().U16(2).Raw(Zip(Bytes(50)));
    noRuns[0] = 0, noRuns[1] = 1;
    earlyEnd.resize(60000);
    DocumentBuilder resources = Small(), effects = Small(), many(kColorGrayscale, 8, 1, 12000, 12000);
    for (int i = 0; i < 10000; ++i) resources.Resource(i % 2 ? 1036 : 1060, Bytes(40));
    LayerBuilder blocks = Layer(0), channels = Layer(0), repeating({0, 0, 2, 1});
    for (int i = 0; i < 20; ++i) blocks.Block("lrFX", Bytes(4));
    for (int i = 0; i < 1500; ++i) effects.Layer(blocks);
    for (int16_t i = 0; i < 32766; ++i) channels.ChannelData(i, {}), repeating.Channel(0, {1, 2}, 2);
    DocumentBuilder counts = Small();
    for (const uint16_t id : std::initializer_list<uint16_t>{1006, 1026, 1032, 1038, 1045, 1050, 1053, 1054})
        counts.Resource(id, ByteWriter().U32(6).Raw(Bytes(25, 255)));
    Bytes header = Small().Build();
    header.resize(26);
    const struct {
        const char* what;
        Bytes file;
        PsdReadResult want;
        uint64_t largest;
    } cases[] = {
        {"a few samples of many", many.MergedData(ByteWriter().U16(2).Raw(Zip(Bytes(2000000)))).Build(),
         kRefused, UINT64_MAX},
        {"deep samples of few rows",
         DocumentBuilder(kColorRgb, 32, 3, 4200, 4200)
             .MergedData(ByteWriter().U16(2).Raw(Zip(Bytes(4000000))))
             .Build(),
         kRead, 4 * 4200 * 4200},
        {"zip that ends", Small(20000).MergedData(earlyEnd).Build(), kRefused, UINT64_MAX},
        {"no runs", Small().Layer(LayerBuilder({0, 0, 20000, 20000}).ChannelData(0, noRuns)).Build(),
         kRefused, UINT64_MAX},
        {"resources", resources.Build(), kRead, kLittle},
        {"counts", counts.Build(), kRead, kLittle},
        {"planes", DocumentBuilder(kColorRgb, 32, 65535, ~0u, ~0u).MergedData({}).Build(), kRefused, kLittle},
        {"palette", ByteWriter().Raw(header).U32(0x7FFFFFFF), kRefused, 64u << 20},
        {"palette of nothing", ByteWriter().Raw(header).U32(48 << 20), kRefused, 48u << 20},
        {"names of nothing", Small().Resource(1006, Bytes(60000)).Build(), kRead, kLittle},
        {"exclusions", Small().Layer(channels.Block("brst", Bytes(1000000))).Build(), kRead, kLittle},
        {"effects of nothing", effects.Build(), kRefused, kLittle},
        // Each decoded channel takes the inflater's memory.
        {"channels", Small().Layer(repeating).Build(), kRead, kLittle},
    };
    for (const auto& test : cases) {
        FailAllocationNumber(0);
        EXPECT_EQ(OpenBytes(test.file).result, test.want) << test.what;
        EXPECT_LE(LargestAllocation(), test.largest) << test.what;
        EXPECT_LE(AllocationCount(), 30000u) << test.what;
    }
}
#endif

TEST(Bombs, DrawingWithoutDataHasAnEnd) {
    // An adjustment that draws nothing in this mode takes its share all the same, and hardly any time.
    DocumentBuilder mixed(kColorGrayscale, 8, 1, 1024, 1024);
    for (int i = 0; i < 300; ++i) mixed.Layer(Layer(0).Block("mixr", ByteWriter().U16(1).Zeros(42)));
    mixed.Layer(Layer(1000).Block("lfx2", tools::DropShadow(75, 0, 0, 250)));
    const Opened many = OpenBytes(mixed.MergedData({0, 0}).Build());
    ASSERT_EQ(many.result, PsdReadResult::kOk);
    ASSERT_EQ(Render(many.document.get(), 0, 0, 1024, 1024), PsdReadResult::kOk);
    EXPECT_LT(many.document->drawingLeft, 6u * 1024u * 1024u);
    auto* effects = FindProperty<EffectsRecord>(many.document->layers[300], kPropertyEffects);
    EXPECT_TRUE(effects->renderPending[kSlotDropShadow]);
}

std::vector<uint32_t> Picture(const Bytes& file) {
    MemoryStream stream(file);
    DocumentPixels picture;
    if (DecodeDocumentPixels(&stream, picture) != PsdReadResult::kOk) return {};
    return {picture.pixels.get(), picture.pixels.get() + picture.pixels.count()};
}

// Meant for the thread sanitizer above all, which sees every table that is built on first use.
TEST(Threads, DecodeAsOneThreadDoes) {
    DocumentBuilder layered(kColorRgb, 8, 3, 16, 16), lab(kColorLab, 8, 3, 16, 16);
    layered.HasRealMergedData(false);
    layered.Layer(
        LayerBuilder({2, 2, 12, 12}).Solid(0xC0406080).Block("lfx2", tools::DropShadow(75, 120, 3, 2)));
    layered.Layer(LayerBuilder({0, 0, 0, 0}).Solid(0).Block("blnc", ByteWriter().I16(40).Zeros(18)));
    layered.Layer(LayerBuilder({0, 0, 16, 16}).Solid(0x80F01020).Mode("hue "));
    Bytes planes(3 * 256);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<uint8_t>(i * 7);
    const Bytes files[] = {layered.Build(), lab.Merged(planes, 3).Build()};

    std::vector<uint32_t> got[8];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::size(got); ++i)
        threads.emplace_back([&, i] { got[i] = Picture(files[i % 2]); });
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < std::size(got); ++i)
        EXPECT_TRUE(got[i].size() == 256 && got[i] == Picture(files[i % 2])) << i;
}

}  // namespace
}  // namespace tessary::test
