// What stands inside the samples' resources, adjustment blocks and effect blocks.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/document_builder.h"

namespace tessary::tools {

using test::Bytes;
using test::ByteWriter;

// A profile of three primaries and one curve: the sRGB colours with a gamma of 2.2.
inline Bytes TinyProfile() {
    const auto xyz = [](double x, double y, double z) {
        return ByteWriter().Text("XYZ ").U32(0).Fixed(x).Fixed(y).Fixed(z).bytes();
    };
    const Bytes curve = ByteWriter().Text("curv").U32(0).U32(1).U16(563).U16(0);
    const std::pair<std::string_view, Bytes> tags[] = {
        {"desc", ByteWriter().Text("desc").U32(0).U32(5).Text("plain").Zeros(80)},
        {"cprt", ByteWriter().Text("text").U32(0).Text("none").Zeros(4)},
        {"wtpt", xyz(0.9642, 1, 0.8249)},
        {"rXYZ", xyz(0.4361, 0.2225, 0.0139)},
        {"gXYZ", xyz(0.3851, 0.7169, 0.0971)},
        {"bXYZ", xyz(0.1431, 0.0606, 0.7141)},
        {"rTRC", curve},
        {"gTRC", curve},
        {"bTRC", curve},
    };
    constexpr uint32_t kDataStart = 128 + 4 + 12 * 9;
    ByteWriter table, data;
    for (const auto& [key, bytes] : tags) {
        table.Text(key)
            .U32(kDataStart + static_cast<uint32_t>(data.size()))
            .U32(static_cast<uint32_t>(bytes.size()));
        data.Raw(bytes).Zeros((4 - bytes.size() % 4) % 4);
    }
    ByteWriter profile;
    profile.U32(kDataStart + static_cast<uint32_t>(data.size()))
        .Zeros(4)
        .U32(0x02100000)
        .Text("mntrRGB XYZ ");
    profile.U16(2024).U16(1).U16(1).Zeros(6).Text("acsp").Zeros(28).Fixed(0.9642).Fixed(1).Fixed(0.8249);
    return profile.Zeros(48).U32(9).Raw(table).Raw(data);
}

// One directory whose Software entry gives way to the XMP packet when a host asks for metadata.
inline Bytes TinyExif() {
    ByteWriter exif;
    exif.Text("MM").U16(42).U32(8).U16(2).U16(0x0112).U16(3).U32(1).U16(1).U16(0);
    return exif.U16(0x0131).U16(2).U32(4).Text("smp").U8(0).U32(0);
}

inline Bytes TinyXmp() {
    return ByteWriter()
        .Text(
            "<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?><x:xmpmeta xmlns:x='adobe:ns:meta/'>"
            "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
            "xmlns:dc='http://purl.org/dc/elements/1.1/' dc:format='image/vnd.adobe.photoshop'/></rdf:RDF>"
            "</x:xmpmeta><?xpacket end='r'?>")
        .bytes();
}

inline Bytes Levels() {
    ByteWriter levels;
    levels.U16(2).U16(30).U16(220).U16(0).U16(255).U16(120).U16(0).U16(255).U16(40).U16(255).U16(100);
    for (int i = 2; i < 29; ++i) levels.U16(0).U16(255).U16(0).U16(255).U16(100);
    return levels;
}

inline Bytes Curve(const std::vector<std::pair<int, int>>& inputToOutput) {
    ByteWriter curve;
    curve.U8(0).U16(1).U32(1).U16(static_cast<uint32_t>(inputToOutput.size()));
    for (const auto& [input, output] : inputToOutput) curve.I16(output).I16(input);
    return curve;
}

inline Bytes Hue(int hue, int saturation, int redsHue) {
    ByteWriter block;
    block.U16(2).U16(0).Zeros(6).I16(hue).I16(saturation).I16(0);
    for (int i = 0; i < 6; ++i) {
        for (const int degrees : {315, 345, 15, 45}) block.I16((degrees + 60 * i) % 360);
        block.I16(i == 0 ? redsHue : 0).I16(0).I16(0);
    }
    return block;
}

inline Bytes GradientMap() {
    ByteWriter block;
    block.U16(1).U16(0).Unicode(u"dusk").U16(3);
    for (const auto& [location, rgb] : {std::pair{0, 0x181848}, {2048, 0xD04A60}, {4096, 0xFFF0B0}}) {
        block.I32(location).U32(50).U16(0);
        for (const int shift : {16, 8, 0}) block.I16((rgb >> shift & 255) * 257);
        block.U16(0).U16(0);
    }
    block.U16(2).U32(0).U32(50).U16(255).U32(4096).U32(50).U16(255);
    block.U16(2).U16(4096).U16(32).U16(0).U32(0).U16(0).U16(0).U32(2048).U16(3).Zeros(8);
    return block.U16(32768).U16(32768).U16(32768).U16(32768).U16(0);
}

// Ranges of `channels` channels that hold nothing back.
inline Bytes FullRanges(int channels) {
    ByteWriter ranges;
    for (int i = 0; i < 2 * channels; ++i) ranges.U16(0).U16(0xFFFF);
    return ranges;
}

struct AdjustmentSample {
    const char* name;
    const char* key;
    Bytes data;
};

inline std::vector<AdjustmentSample> AdjustmentSamples() {
    ByteWriter selective, mixer;
    selective.U16(1).U16(0);
    for (int i = 0; i < 10; ++i)
        selective.I16(i == 3 ? 80 : 0).I16(i == 5 ? -60 : 0).I16(0).I16(i == 8 ? 10 : 0);
    mixer.U16(1).U16(0);
    for (int i = 0; i < 4; ++i)
        mixer.I16(i == 1 ? 100 : 0).I16(i == 2 ? 100 : 0).I16(i == 0 ? 100 : 0).I16(0).I16(0);
    return {
        {"levels", "levl", Levels()},
        {"curves", "curv", Curve({{0, 0}, {64, 32}, {128, 160}, {255, 255}})},
        {"brightness", "brit", ByteWriter().I16(30).I16(40).I16(127).U8(0).U8(0)},
        {"balance", "blnc",
         ByteWriter().I16(-40).I16(0).I16(40).I16(30).I16(0).I16(-30).I16(20).I16(0).I16(0).U8(1).U8(0)},
        {"hue", "hue2", Hue(40, 20, 90)},
        {"selective", "selc", selective},
        {"threshold", "thrs", ByteWriter().U16(128).U16(0)},
        {"invert", "nvrt", {}},
        {"posterize", "post", ByteWriter().U16(4).U16(0)},
        {"mixer", "mixr", mixer},
        {"gradient-map", "grdm", GradientMap()},
    };
}

// What stands in front of this many effects.
inline ByteWriter EffectsHead(uint32_t effects) {
    ByteWriter block = ByteWriter().U32(0).U32(16).ClassName("null").U32(2 + effects);
    return block.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", true);
}

// The effects block with one effect of this key.
inline Bytes Effect(std::string_view key, const ByteWriter& items, uint32_t itemCount) {
    return EffectsHead(1).ItemHead(key, "Objc").ClassName(key).U32(itemCount).Raw(items);
}

// The effects of several such blocks in one.
inline Bytes Together(const std::vector<Bytes>& blocks) {
    ByteWriter all = EffectsHead(static_cast<uint32_t>(blocks.size()));
    const std::ptrdiff_t head = static_cast<std::ptrdiff_t>(all.size());
    for (const Bytes& block : blocks) all.Raw(Bytes(block.begin() + head, block.end()));
    return all;
}

inline Bytes DropShadow(double opacity, double angle, double distance, double size) {
    ByteWriter items;
    items.Bool("enab", true)
        .Enum("Md  ", "BlnM", "Mltp")
        .ColorItem("Clr ", 10, 5, 40)
        .Unit("Opct", "#Prc", opacity);
    items.Bool("uglg", false)
        .Unit("lagl", "#Ang", angle)
        .Unit("Dstn", "#Pxl", distance)
        .Unit("Ckmt", "#Pxl", 0);
    items.Unit("blur", "#Pxl", size).Unit("Nose", "#Prc", 0).Bool("AntA", false).Bool("layerConceals", true);
    return Effect("DrSh", items, 12);
}

inline Bytes OuterGlow(double size = 14, double noise = 0) {
    ByteWriter items;
    items.Bool("enab", true)
        .Enum("Md  ", "BlnM", "Scrn")
        .ColorItem("Clr ", 255, 250, 120)
        .Unit("Opct", "#Prc", 90);
    items.Enum("GlwT", "BETE", "SfBL")
        .Unit("Ckmt", "#Pxl", 10)
        .Unit("blur", "#Pxl", size)
        .Unit("Nose", "#Prc", noise);
    return Effect("OrGl", items.Unit("ShdN", "#Prc", 0).Bool("AntA", false).Unit("Inpr", "#Prc", 50), 11);
}

// A glow from orange to blue, fading out, in waves, with grains.
inline Bytes GradientGlow() {
    ByteWriter items;
    items.Bool("enab", true).Enum("Md  ", "BlnM", "Nrml").Unit("Opct", "#Prc", 100);
    items.ItemHead("Grad", "Objc").ClassName("Grdn").U32(3).Enum("GrdF", "GrdF", "CstS");
    items.ItemHead("Clrs", "VlLs").U32(2);
    for (const int32_t end : {0, 1}) {
        items.Text("Objc").ClassName("Clrt").U32(4).ColorItem("Clr ", 255 * (1 - end), 130, 60 + 190 * end);
        items.Enum("Type", "Clry", "UsrS").Long("Lctn", 4096 * end).Long("Mdpn", 50);
    }
    items.ItemHead("Trns", "VlLs").U32(2);
    for (const int32_t end : {0, 1}) {
        items.Text("Objc").ClassName("TrnS").U32(3).Unit("Opct", "#Prc", 100 * (1 - end));
        items.Long("Lctn", 4096 * end).Long("Mdpn", 50);
    }
    items.ItemHead("TrnS", "Objc").ClassName("ShpC").U32(1).ItemHead("Crv ", "VlLs").U32(4);
    for (const int32_t i : {0, 1, 2, 3}) {
        items.Text("Objc").ClassName("CrPt").U32(2);
        items.Double("Hrzn", 85 * i).Double("Vrtc", i == 0 ? 0 : i == 2 ? 120 : 255);
    }
    items.Enum("GlwT", "BETE", "PrBL").Unit("Ckmt", "#Pxl", 20).Unit("blur", "#Pxl", 20);
    items.Unit("Nose", "#Prc", 12).Unit("ShdN", "#Prc", 10).Bool("AntA", true).Unit("Inpr", "#Prc", 50);
    return Effect("OrGl", items, 12);
}

inline Bytes ColorOverlay(double opacity = 80) {
    ByteWriter items;
    items.Bool("enab", true)
        .Enum("Md  ", "BlnM", "Nrml")
        .Unit("Opct", "#Prc", opacity)
        .ColorItem("Clr ", 60, 160, 90);
    return Effect("SoFi", items, 4);
}

}  // namespace tessary::tools
