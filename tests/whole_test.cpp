// Whole documents: real ones, and many at once.
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
#include "render/render.h"
#include "tools/document_builder.h"
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

// When there is nothing left to spend.
TEST(Bombs, DrawingWithoutDataHasAnEnd) {
    DocumentBuilder builder(kColorRgb, 8, 3, 2, 1);
    builder.Layer(LayerBuilder({0, 0, 1, 1}).Solid(0xFF102030).Block("lfx2", tools::ColorOverlay()));
    builder.Layer(LayerBuilder({1, 0, 2, 1}).ChannelData(-1, {0, 0, 9}).ChannelData(0, {0, 0, 9}));
    builder.Layer(LayerBuilder({1, 0, 2, 2}).ChannelData(0, {0, 0, 9}));
    builder.Layer(LayerBuilder(Rect{}).ChannelData(-1, {0, 0}).Block("nvrt", {}));
    const Opened opened = OpenBytes(builder.Build());
    ASSERT_EQ(opened.result, PsdReadResult::kOk);
    PsdDocument& document = *opened.document;
    ASSERT_EQ(Render(&document, 0, 0, 2, 1), PsdReadResult::kOk);
    const uint32_t first = document.canvas[0];
    EXPECT_EQ(document.canvas[1], 0xFFF6FFFF) << "all there is, inverted";

    document.allowance.stepsSpent = UINT64_MAX;
    Rendering rendering;
    ASSERT_EQ(BeginRender(rendering, document, {0, 0, 2, 1}, 1), PsdReadResult::kOk);
    for (PsdLayer& layer : document.layers.span()) ASSERT_EQ(DrawLayer(rendering, layer), PsdReadResult::kOk);
    // Pixels that the data fills are drawn whatever else there is, and effects that were kept.
    EXPECT_EQ(document.canvas[0], first ^ 0xFFFFFF);
    EXPECT_EQ(document.canvas[1], 0xFF090000);
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
        EXPECT_EQ(All(got[i].size(), got[i]), All(256, Picture(files[i % 2]))) << i;
}

}  // namespace
}  // namespace tessary::test
