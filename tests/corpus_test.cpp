// Real documents, written by programs outside this project. They are not part of it: without them these tests
// are skipped.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tests/support/document_builder.h"

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

// What others made of these documents takes the white matte out of the colours, which the file does not
// store.
class Corpus : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(m_folder / "expected.tsv")) GTEST_SKIP() << "no documents in " << m_folder;
    }
    Opened Open(const std::string& name, uint32_t mode) {
        std::ifstream file(m_folder / "files" / name, std::ios::binary);
        return OpenBytes({std::istreambuf_iterator<char>(file), {}}, mode);
    }
    const char* const m_named = std::getenv("TESSARY_CORPUS");
    const fs::path m_folder =
        m_named ? fs::path(m_named) : fs::path(TESSARY_SOURCE_DIR).parent_path() / "shared" / "corpus";
};

TEST_F(Corpus, MergedImagesAreWhatOtherProgramsRead) {
    if (Sha256({}).empty()) GTEST_SKIP() << "CMake is not in the path";
    size_t agreed = 0;
    for (auto& row : TableRows(m_folder / "expected.tsv")) {
        if (row["verdict"] != "agreed") continue;
        ++agreed;
        const Opened opened = Open(row["file"], kReadMerged);
        ASSERT_EQ(opened.result, PsdReadResult::kOk) << row["file"];
        EXPECT_EQ(Sha256(*opened.document), row["sha256_rgb"]) << row["file"];
    }
    EXPECT_GT(agreed, 0u);
}

TEST_F(Corpus, DocumentsHaveTheLayersOfTheCatalogueOrAreRefused) {
    // An odd layer info at the section's end; ranges without channels; a record that claims two bytes more
    // than it has; levels with an unknown tail; a gradient map of version 3.
    const std::set<std::string> refused = {
        "kif__rgb-gimp-2.8.10.psd", "agpsd__read-layer-offsets-read-src.psd", "rustpsd__luni.psd",
        "agpsd__read-write-adjustments-expected.psd", "psdtools__layers-gradient-map-v3-perceptual.psd"};
    for (auto& row : TableRows(m_folder / "catalog.tsv")) {
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = Open(row["file"], mode);
            EXPECT_EQ(static_cast<bool>(opened.document), opened.result == PsdReadResult::kOk) << row["file"];
        }
        const int layers = std::abs(std::atoi(row["layers"].c_str()));
        if (layers == 0 || row["kind"] == "damaged-or-refused") continue;
        const Opened opened = Open(row["file"], kReadEverything);
        // Masks with density and feather are refused, and layers of 32 bits are passed over.
        bool sound = refused.count(row["file"]) == 0;
        std::istringstream sizes(row["mask_sizes"]);
        for (int size; sizes >> size;) sound = sound && (size == 0 || size == 20 || size == 36);
        EXPECT_EQ(static_cast<bool>(opened.document), sound) << row["file"];
        const int count = opened.document ? opened.document->layerCount : 0;
        EXPECT_EQ(count, sound && row["lr_block"] != "Lr32" ? layers : 0) << row["file"];
    }
}

}  // namespace
}  // namespace tessary::test
