// Writes the large documents that decoding is measured on: the same bytes every time, smooth and textured and
// flat like photographs that were worked on.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "document/plane_format.h"
#include "tools/document_builder.h"
#include "tools/sample_blocks.h"
#include "tools/sample_effects.h"

namespace tessary::tools {
namespace {

using namespace test;

constexpr uint32_t Scramble(uint32_t value) {
    value = (value ^ value >> 16) * 0x7FEB352Du;
    value = (value ^ value >> 15) * 0x846CA68Bu;
    return value ^ value >> 16;
}

// One plane of bytes. Tiles of 64 pixels are flat, or a slow gradient, or a gradient under fine or coarse
// noise, so that PackBits leaves about four fifths of it.
Bytes PicturePlane(uint32_t width, uint32_t height, uint32_t channel) {
    Bytes plane(size_t{width} * height);
    uint8_t* out = plane.data();
    uint32_t noise = 0x9E3779B9u * (channel + 1);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t left = 0; left < width; left += 64) {
            const uint32_t tile = Scramble((y / 64) << 12 ^ left / 64);
            const uint32_t kind = tile % 20;
            const uint32_t level = 60 + (Scramble(tile + channel) & 127);
            const uint32_t amplitude = kind < 6 ? 0 : kind < 13 ? 3 : 15;
            for (uint32_t x = left; x < std::min(left + 64, width); ++x) {
                noise = noise * 1664525u + 1013904223u;
                const uint32_t slope = kind < 3 ? 0 : (x * (channel + 2) + y * 3) / 24 & 63;
                *out++ = static_cast<uint8_t>(level + slope + (noise >> 24) * amplitude / 256);
            }
        }
    }
    return plane;
}

// The same with 16 bits: where a row is flat both bytes are equal, elsewhere the low one is noise.
Bytes PicturePlane16(uint32_t width, uint32_t height, uint32_t channel) {
    const Bytes high = PicturePlane(width, height, channel);
    Bytes plane(2 * high.size());
    uint32_t noise = channel + 1;
    for (size_t i = 0; i < high.size(); ++i) {
        noise = noise * 1664525u + 1013904223u;
        const bool smooth = i != 0 && high[i] == high[i - 1];
        plane[2 * i] = high[i];
        plane[2 * i + 1] = smooth ? high[i] : static_cast<uint8_t>(noise >> 24);
    }
    return plane;
}

// Opaque inside, softly transparent towards the corners.
Bytes OvalPlane(uint32_t width, uint32_t height, uint32_t reach) {
    Bytes plane;
    plane.reserve(size_t{width} * height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const int64_t dx = int64_t{2} * x - width, dy = int64_t{2} * y - height;
            const int64_t distance = (dx * dx + dy * dy) * 256 / (int64_t{width} * height);
            plane.push_back(static_cast<uint8_t>(std::clamp<int64_t>((reach - distance) * 4, 0, 255)));
        }
    }
    return plane;
}

Bytes Picture(uint32_t width, uint32_t height, uint32_t channels, uint32_t depth) {
    Bytes planes;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        const Bytes plane =
            depth == 16 ? PicturePlane16(width, height, channel) : PicturePlane(width, height, channel);
        planes.insert(planes.end(), plane.begin(), plane.end());
    }
    return planes;
}

Bytes FlatPicture(uint32_t side) {
    Bytes planes;
    for (uint32_t channel = 0; channel < 3; ++channel) {
        for (uint32_t y = 0; y < side; ++y)
            planes.insert(planes.end(), side, static_cast<uint8_t>(40 + 60 * channel + 20 * (4 * y / side)));
    }
    return planes;
}

class Folder {
public:
    explicit Folder(std::filesystem::path path) : m_path(std::move(path)) {
        std::filesystem::create_directories(m_path);
    }
    void Write(const std::string& name, const Bytes& bytes) const {
        std::ofstream file(m_path / (name + ".psd"), std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush()) throw std::runtime_error("cannot write " + name);
    }

private:
    std::filesystem::path m_path;
};

void WriteMerged(const Folder& folder) {
    const struct {
        const char* name;
        PsdColorMode mode;
        uint32_t depth, channels, side;
        std::vector<uint16_t> compressions;
    } rows[] = {
        {"rgb8", kColorRgb, 8, 3, 4096, {0, 1, 2, 3}}, {"rgb16", kColorRgb, 16, 3, 3000, {1, 3}},
        {"cmyk8", kColorCmyk, 8, 4, 3000, {1}},        {"lab8", kColorLab, 8, 3, 2000, {1}},
        {"flat8", kColorRgb, 8, 3, 8000, {1}},
    };
    constexpr const char* kNames[] = {"raw", "rle", "zip", "predicted"};
    for (const auto& row : rows) {
        const Bytes planes =
            row.side == 8000 ? FlatPicture(row.side) : Picture(row.side, row.side, row.channels, row.depth);
        for (const uint16_t compression : row.compressions) {
            DocumentBuilder document(row.mode, row.depth, row.channels, row.side, row.side);
            document.Merged(planes, compression);
            folder.Write(std::string(row.name) + "-" + kNames[compression], document.Build());
        }
    }
}

// Channels -1 to 2 of a layer, packed; all of its channel data is then copied, not packed again.
struct PackedLayer {
    PackedLayer(uint32_t side, uint32_t number) {
        channels[0] =
            EncodePlanes(kCompressionPackBits, OvalPlane(side, side, 200 + number % 20 * 12), side, 8);
        for (uint32_t i = 0; i < 3; ++i)
            channels[i + 1] =
                EncodePlanes(kCompressionPackBits, PicturePlane(side, side, 3 * number + i), side, 8);
    }
    LayerBuilder At(int32_t left, int32_t top, int32_t side) const {
        LayerBuilder layer({left, top, left + side, top + side});
        for (int16_t id = -1; id <= 2; ++id) layer.ChannelData(id, channels[id + 1]);
        return layer;
    }
    Bytes channels[4];
};

DocumentBuilder Layered(uint32_t side) {
    DocumentBuilder document(kColorRgb, 8, 3, side, side);
    document.HasRealMergedData(false).Merged(Picture(side, side, 3, 8), kCompressionPackBits);
    return document;
}

void WriteLayered(const Folder& folder) {
    constexpr int32_t kSide = 2048;
    constexpr const char* kModes[] = {"norm", "dark", "mul ", "idiv", "lbrn", "lite", "scrn",
                                      "div ", "lddg", "over", "sLit", "hLit", "vLit", "lLit",
                                      "pLit", "hMix", "diff", "smud", "norm", "hue "};
    std::vector<PackedLayer> layers;
    for (uint32_t i = 0; i < std::size(kModes); ++i) layers.emplace_back(uint32_t{kSide}, i);
    const Bytes mask = EncodePlanes(kCompressionPackBits, OvalPlane(kSide, kSide, 256), kSide, 8);
    const auto adjustments = AdjustmentSamples();

    const auto build = [&](bool mixed, uint32_t adjustmentCount) {
        DocumentBuilder document = Layered(kSide);
        for (size_t i = 0; i < layers.size(); ++i) {
            if (mixed && i == 6) document.Layer(GroupEnd());
            LayerBuilder layer = layers[i].At(0, 0, kSide);
            if (mixed) layer.Mode(kModes[i]).Opacity(static_cast<uint8_t>(255 - 5 * i));
            if (mixed && i % 4 == 1) layer.Mask({0, 0, kSide, kSide}, 0, 0).ChannelData(-2, mask);
            document.Layer(std::move(layer));
            if (mixed && i == 9) document.Layer(GroupHead());
            if (i % 4 == 3 && i / 4 < adjustmentCount) {
                const AdjustmentSample& sample = adjustments[i / 4];
                document.Layer(LayerBuilder({}).Solid(0).Name(sample.name).Block(sample.key, sample.data));
            }
        }
        return document.Build();
    };
    folder.Write("layers-mixed", build(true, 0));
    folder.Write("layers-normal", build(false, 0));
    folder.Write("layers-adjusted", build(true, 5));
}

// The places of many small layers on a canvas.
int32_t Scattered(uint32_t number, uint32_t axis, int32_t canvas, int32_t side) {
    return static_cast<int32_t>(Scramble(2 * number + axis) % static_cast<uint32_t>(canvas - side));
}

void WriteSmallLayers(const Folder& folder) {
    constexpr int32_t kSide = 512, kCanvas = 2048;
    std::vector<PackedLayer> layers;
    for (uint32_t i = 0; i < 10; ++i) layers.emplace_back(uint32_t{kSide}, i);
    DocumentBuilder document = Layered(kCanvas);
    for (uint32_t i = 0; i < 300; ++i) {
        document.Layer(layers[i % layers.size()].At(Scattered(i, 0, kCanvas, kSide),
                                                    Scattered(i, 1, kCanvas, kSide), kSide));
    }
    folder.Write("layers-small", document.Build());
}

// Under masks of their own, half as large.
void WriteMaskedLayers(const Folder& folder) {
    constexpr int32_t kSide = 256, kCanvas = 2048;
    const PackedLayer picture(uint32_t{kSide}, 0);
    const Bytes mask = EncodePlanes(kCompressionPackBits, OvalPlane(kSide, kSide / 2, 256), kSide, 8);
    DocumentBuilder document = Layered(kCanvas);
    for (uint32_t i = 0; i < 300; ++i) {
        const int32_t left = Scattered(i, 0, kCanvas, kSide), top = Scattered(i, 1, kCanvas, kSide);
        LayerBuilder layer = picture.At(left, top, kSide);
        layer.Mask({left, top + kSide / 4, left + kSide, top + 3 * kSide / 4}, 0, 0).ChannelData(-2, mask);
        document.Layer(std::move(layer));
    }
    folder.Write("layers-masked", document.Build());
}

// Layers of canvas size, each with nothing in it but a shape of 300 x 60.
void WriteSparseLayers(const Folder& folder) {
    constexpr uint32_t kCanvas = 2048;
    DocumentBuilder document = Layered(kCanvas);
    const Bytes flat = EncodePlanes(kCompressionPackBits, Bytes(size_t{kCanvas} * kCanvas, 90), kCanvas, 8);
    for (uint32_t i = 0; i < 40; ++i) {
        Bytes alpha(size_t{kCanvas} * kCanvas);
        const size_t first = static_cast<size_t>(Scattered(i, 1, kCanvas, 60)) * kCanvas +
                             static_cast<size_t>(Scattered(i, 0, kCanvas, 300));
        for (size_t y = 0; y < 60; ++y) std::fill_n(&alpha[first + y * kCanvas], 300, uint8_t{255});
        LayerBuilder layer({0, 0, kCanvas, kCanvas});
        layer.ChannelData(-1, EncodePlanes(kCompressionPackBits, alpha, kCanvas, 8));
        for (int16_t id = 0; id <= 2; ++id) layer.ChannelData(id, flat);
        document.Layer(std::move(layer));
    }
    folder.Write("layers-sparse", document.Build());
}

// Eight adjustments that only look colours up, one after another.
void WriteTables(const Folder& folder) {
    constexpr int32_t kSide = 2048;
    DocumentBuilder document = Layered(kSide);
    document.Layer(PackedLayer(uint32_t{kSide}, 19).At(0, 0, kSide));
    for (const AdjustmentSample& sample : AdjustmentSamples()) {
        const std::string_view name = sample.name;
        if (name == "hue" || name == "selective" || name == "mixer") continue;
        document.Layer(LayerBuilder({}).Solid(0).Name(sample.name).Block(sample.key, sample.data));
    }
    folder.Write("layers-tables", document.Build());
}

// Each of the modes that take longest, four times over a picture.
void WriteModes(const Folder& folder) {
    constexpr int32_t kSide = 1024;
    std::vector<PackedLayer> layers;
    for (uint32_t i = 0; i < 5; ++i) layers.emplace_back(uint32_t{kSide}, i + 15);
    for (const char* key : {"idiv", "div ", "sLit", "vLit", "lLit", "hue ", "sat ", "colr", "lum "}) {
        DocumentBuilder document = Layered(kSide);
        for (const PackedLayer& layer : layers)
            document.Layer(layer.At(0, 0, kSide).Mode(&layer == layers.data() ? "norm" : key));
        std::string name = std::string("mode-") + key;
        folder.Write(name.back() == ' ' ? name.substr(0, name.size() - 1) : name, document.Build());
    }
}

// The effects that the samples show, and sizes that they do not have.
void WriteEffects(const Folder& folder) {
    constexpr int32_t kSide = 1200, kCanvas = 2048;
    std::vector<std::pair<std::string, Bytes>> effects = {{"drop-shadow", DropShadow(75, 120, 20, 40)},
                                                          {"wide-shadow", DropShadow(75, 120, 20, 250)},
                                                          {"outer-glow", OuterGlow()},
                                                          {"gradient-glow", GradientGlow()},
                                                          {"colour-overlay", ColorOverlay()}};
    for (const EffectSample& sample : EffectSamples())
        effects.emplace_back(sample.name, EffectsBlock(sample.effects));
    for (const double size : {20, 200}) {
        const EffectItems stroke = {"FrFX", Items().Shown().Pixels("Sz  ", size).Choice("Styl", "CtrF")};
        effects.emplace_back("stroke-" + std::to_string(static_cast<int>(size)), EffectsBlock({&stroke, 1}));
    }
    const PackedLayer ground(uint32_t{kCanvas}, 19), picture(uint32_t{kSide}, 3);
    for (const auto& [name, block] : effects) {
        DocumentBuilder document = Layered(kCanvas);
        document.Layer(ground.At(0, 0, kCanvas)).Layer(picture.At(400, 400, kSide).Block("lfx2", block));
        folder.Write("effect-" + name, document.DocumentBlock("Patt", WeaveBlock()).Build());
    }
}

}  // namespace
}  // namespace tessary::tools

int main(int count, char** arguments) {
    if (count != 2) {
        std::fputs("usage: make_bench_documents FOLDER\n", stderr);
        return 2;
    }
    try {
        const tessary::tools::Folder folder(arguments[1]);
        tessary::tools::WriteMerged(folder);
        tessary::tools::WriteLayered(folder);
        tessary::tools::WriteSmallLayers(folder);
        tessary::tools::WriteMaskedLayers(folder);
        tessary::tools::WriteSparseLayers(folder);
        tessary::tools::WriteTables(folder);
        tessary::tools::WriteModes(folder);
        tessary::tools::WriteEffects(folder);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "make_bench_documents: %s\n", exception.what());
        return 1;
    }
    return 0;
}
