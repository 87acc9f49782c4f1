// Real documents, written by programs outside this project. They are not part of it: without them these tests
// are skipped.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "tests/support/document_builder.h"
#include "tests/support/sha256.h"

namespace tessary::test {
namespace {

namespace fs = std::filesystem;

fs::path CorpusFolder() {
    const char* named = std::getenv("TESSARY_CORPUS");
    return named ? fs::path(named) : fs::path(TESSARY_SOURCE_DIR).parent_path() / "shared" / "corpus";
}

Bytes FileBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// The rows of a table with a head line, by column name.
std::vector<std::map<std::string, std::string>> TableRows(const fs::path& path) {
    std::ifstream file(path);
    std::vector<std::string> names;
    std::vector<std::map<std::string, std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        std::istringstream cells(line);
        const bool isHead = names.empty();
        if (!isHead) rows.emplace_back();
        size_t column = 0;
        for (std::string cell; std::getline(cells, cell, '\t'); ++column) {
            if (isHead) {
                names.push_back(cell);
            } else if (column < names.size()) {
                rows.back()[names[column]] = cell;
            }
        }
    }
    return rows;
}

Bytes RgbBytes(const PsdDocument& document) {
    Bytes bytes;
    bytes.reserve(document.mergedPixels.count() * 3);
    for (const uint32_t pixel : document.mergedPixels.span()) {
        for (const uint32_t channel : {Red(pixel), Green(pixel), Blue(pixel)}) {
            bytes.push_back(static_cast<uint8_t>(channel));
        }
    }
    return bytes;
}

// What others made of these documents takes the white matte out of the colours, which the file does not
// store.
class Corpus : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists(m_folder / "expected.tsv")) GTEST_SKIP() << "no documents in " << m_folder;
    }
    const fs::path m_folder = CorpusFolder();
};

TEST_F(Corpus, MergedImagesAreWhatOtherProgramsRead) {
    size_t agreed = 0, same = 0;
    for (auto& row : TableRows(m_folder / "expected.tsv")) {
        if (row["verdict"] != "agreed") continue;
        ++agreed;
        const Opened opened = OpenBytes(FileBytes(m_folder / "files" / row["file"]), kReadMerged);
        EXPECT_EQ(opened.result, PsdReadResult::kOk) << row["file"];
        if (!opened.document || !opened.document->mergedPixels) continue;
        const std::string digest = Sha256(RgbBytes(*opened.document));
        EXPECT_EQ(digest, row["sha256_rgb"]) << row["file"];
        same += digest == row["sha256_rgb"];
    }
    std::cout << same << " of " << agreed << " merged images agree\n";
    EXPECT_GT(agreed, 0u);
}

TEST_F(Corpus, DocumentsHaveTheLayersOfTheCatalogue) {
    // An odd layer info at the section's end; ranges without channels; a record that claims two bytes more
    // than it has; levels with an unknown tail; a gradient map of version 3.
    const std::set<std::string> refused = {
        "kif__rgb-gimp-2.8.10.psd", "agpsd__read-layer-offsets-read-src.psd", "rustpsd__luni.psd",
        "agpsd__read-write-adjustments-expected.psd", "psdtools__layers-gradient-map-v3-perceptual.psd"};
    for (auto& row : TableRows(m_folder / "catalog.tsv")) {
        const int layers = std::abs(std::atoi(row["layers"].c_str()));
        if (layers == 0 || row["kind"] == "damaged-or-refused") continue;
        const Opened opened = OpenBytes(FileBytes(m_folder / "files" / row["file"]));
        // Masks with density and feather are refused, and layers of 32 bits are passed over.
        bool sound = refused.count(row["file"]) == 0;
        std::istringstream sizes(row["mask_sizes"]);
        for (int size; sizes >> size;) sound = sound && (size == 0 || size == 20 || size == 36);
        EXPECT_EQ(static_cast<bool>(opened.document), sound) << row["file"];
        const int count = opened.document ? opened.document->layerCount : 0;
        EXPECT_EQ(count, sound && row["lr_block"] != "Lr32" ? layers : 0) << row["file"];
    }
}

TEST_F(Corpus, EveryDocumentOpensOrIsRefused) {
    size_t documents = 0, refused = 0;
    for (const auto& entry : fs::directory_iterator(m_folder / "files")) {
        ++documents;
        const Bytes file = FileBytes(entry.path());
        std::map<int32_t, std::string> modesByCode;
        for (uint32_t mode = 0; mode <= 6; ++mode) {
            const Opened opened = OpenBytes(file, mode);
            EXPECT_EQ(static_cast<bool>(opened.document), opened.result == PsdReadResult::kOk);
            if (!opened.document) modesByCode[static_cast<int32_t>(opened.result)] += std::to_string(mode);
        }
        refused += !modesByCode.empty();
        for (const auto& [code, modes] : modesByCode) {
            std::cout << entry.path().filename().string() << ": " << code << " in modes " << modes << "\n";
        }
    }
    std::cout << refused << " of " << documents << " documents are refused in some mode\n";
    EXPECT_GT(documents, 0u);
}

}  // namespace
}  // namespace tessary::test
