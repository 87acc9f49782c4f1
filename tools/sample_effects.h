// The blocks of layer effects, and the pattern that some of them paint with.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/document_builder.h"

namespace tessary::tools {

using test::Bytes;
using test::ByteWriter;

// Items of an object, counted.
class Items {
public:
    Items& Flag(std::string_view key, bool value = true) { return Count(m_bytes.Bool(key, value)); }
    Items& Pixels(std::string_view key, double value) { return Count(m_bytes.Unit(key, "#Pxl", value)); }
    Items& Percent(std::string_view key, double value) { return Count(m_bytes.Unit(key, "#Prc", value)); }
    Items& Angle(std::string_view key, double value) { return Count(m_bytes.Unit(key, "#Ang", value)); }
    Items& Long(std::string_view key, int32_t value) { return Count(m_bytes.Long(key, value)); }
    Items& Choice(std::string_view key, std::string_view value) {
        return Count(m_bytes.Enum(key, "type", value));
    }
    Items& Color(std::string_view key, uint32_t rgb) {
        return Count(m_bytes.ColorItem(key, rgb >> 16 & 255, rgb >> 8 & 255, rgb & 255));
    }
    Items& Text(std::string_view key, std::u16string_view text) {
        return Count(m_bytes.ItemHead(key, "TEXT").Unicode(text));
    }
    Items& Object(std::string_view key, const Items& items) {
        m_bytes.ItemHead(key, "Objc").ClassName(key).Raw(items.Counted());
        return Count(m_bytes);
    }
    Items& List(std::string_view key, const std::vector<Items>& elements) {
        m_bytes.ItemHead(key, "VlLs").U32(static_cast<uint32_t>(elements.size()));
        for (const Items& element : elements) m_bytes.Text("Objc").ClassName("null").Raw(element.Counted());
        return Count(m_bytes);
    }
    // Mode, opacity in percent, and that it is switched on.
    Items& Shown(std::string_view mode = "Nrml", double opacity = 100) {
        return Flag("enab").Choice("Md  ", mode).Percent("Opct", opacity);
    }
    Items& Offset(std::string_view key, double horizontal, double vertical) {
        return Object(key, Items().Pixels("Hrzn", horizontal).Pixels("Vrtc", vertical));
    }
    Bytes Counted() const { return ByteWriter().U32(m_count).Raw(m_bytes); }

private:
    Items& Count(ByteWriter&) { return ++m_count, *this; }
    ByteWriter m_bytes;
    uint32_t m_count = 0;
};

// One effect's key and its settings.
using EffectItems = std::pair<std::string_view, Items>;

inline Bytes EffectsBlock(std::span<const EffectItems> effects) {
    ByteWriter block;
    block.U32(0).U32(16).ClassName("null").U32(2 + static_cast<uint32_t>(effects.size()));
    block.Unit("Scl ", "#Prc", 100).Bool("masterFXSwitch", true);
    for (const auto& [key, items] : effects) block.ItemHead(key, "Objc").ClassName(key).Raw(items.Counted());
    return block;
}

// Colours at even distances.
inline Items Gradient(const std::vector<uint32_t>& colors, int32_t midpoint = 50) {
    std::vector<Items> stops, opacities;
    for (size_t i = 0; i < colors.size(); ++i) {
        const int32_t location = static_cast<int32_t>(4096 * i / (colors.size() - 1));
        const auto placed = [&](Items items) { return items.Long("Lctn", location).Long("Mdpn", midpoint); };
        stops.push_back(placed(Items().Color("Clr ", colors[i]).Choice("Type", "UsrS")));
        opacities.push_back(placed(Items().Percent("Opct", (colors[i] >> 24) / 2.55)));
    }
    return Items().Choice("GrdF", "CstS").Long("Intr", 4096).List("Clrs", stops).List("Trns", opacities);
}

// A contour through points of a byte each.
inline Items Contour(const std::vector<std::pair<int, int>>& points) {
    std::vector<Items> elements;
    elements.reserve(points.size());
    for (const auto& [x, y] : points) elements.push_back(Items().Pixels("Hrzn", x).Pixels("Vrtc", y));
    return Items().List("Crv ", elements);
}

inline constexpr std::u16string_view kWeave = u"weave";
inline Items WeavePattern() {
    return Items().Text("Nm  ", u"woven\0").Text("Idnt", std::u16string(kWeave) + u'\0');
}

// One pattern of a block: the planes of `pixels` and their alpha, packed or raw, 8 or 16 bits deep.
inline Bytes PatternOf(std::string_view identifier, int32_t width, const std::vector<uint32_t>& pixels,
                       uint16_t compression = 0, uint32_t depth = 8) {
    const int32_t height = static_cast<int32_t>(pixels.size()) / width;
    const Rect bounds{0, 0, width, height};
    ByteWriter planes;
    for (const int shift : {16, 8, 0, 24}) {
        Bytes samples;
        for (const uint32_t pixel : pixels) {
            samples.push_back(static_cast<uint8_t>(pixel >> shift));
            if (depth == 16) samples.push_back(0x80);
        }
        // The code stands in one byte here.
        const Bytes data =
            test::EncodePlanes(compression, samples, static_cast<size_t>(width) * depth / 8, depth);
        ByteWriter plane = ByteWriter().U32(depth).RectTlbr(bounds).U16(depth);
        plane.Raw(Bytes(data.begin() + 1, data.end()));
        if (shift == 24) planes.U32(0);  // an entry that is not written
        planes.U32(1).Counted(plane);
    }
    ByteWriter pattern = ByteWriter().U32(1).U32(3).U16(static_cast<uint32_t>(height));
    pattern.U16(static_cast<uint32_t>(width)).Unicode(u"woven").Pascal(identifier, 1).U32(3);
    const Bytes body = ByteWriter().RectTlbr(bounds).U32(3).Raw(planes);
    pattern.Counted(body);
    return ByteWriter().Counted(pattern).Zeros((4 - pattern.size() % 4) % 4);
}

inline Bytes WeaveBlock() {
    std::vector<uint32_t> pixels;
    for (int i = 0; i < 144; ++i) {
        const int x = i % 12, y = i / 12;
        const bool isAcross = (x / 6 + y / 6) % 2 == 0;
        const int ridge = isAcross ? y % 6 : x % 6;
        pixels.push_back(0xFF000000 | static_cast<uint32_t>(70 + 28 * (ridge < 3 ? ridge : 5 - ridge)) *
                                          (isAcross ? 0x030201 : 0x010203));
    }
    return PatternOf("weave", 12, pixels, 1);
}

struct EffectSample {
    const char* name;
    std::vector<EffectItems> effects;
};

// Each effect that the samples show alone.
inline std::vector<EffectSample> EffectSamples() {
    const auto lit = [](double angle) { return Items().Shown().Angle("lagl", angle); };
    const Items dusk = Gradient({0xFF182060, 0xFFE05080, 0xFFFFE0A0}, 40);
    const Items bevel =
        Items().Flag("enab").Choice("hglM", "Scrn").Color("hglC", 0xFFFFFF).Percent("hglO", 80);
    const auto shaded = [](Items items) {
        return items.Choice("sdwM", "Mltp")
            .Color("sdwC", 0x201040)
            .Percent("sdwO", 75)
            .Angle("lagl", 120)
            .Angle("Lald", 30);
    };
    return {
        {"inner-shadow",
         {{"IrSh", Items()
                       .Shown("Mltp", 80)
                       .Color("Clr ", 0x201040)
                       .Angle("lagl", 120)
                       .Pixels("Dstn", 6)
                       .Pixels("Ckmt", 20)
                       .Pixels("blur", 8)}}},
        {"inner-glow",
         {{"IrGl", Items()
                       .Shown("Scrn", 90)
                       .Color("Clr ", 0xFFF0A0)
                       .Choice("GlwT", "SfBL")
                       .Choice("glwS", "SrcE")
                       .Pixels("blur", 10)}}},
        {"inner-glow-precise",
         {{"IrGl", Items()
                       .Shown()
                       .Object("Grad", dusk)
                       .Choice("GlwT", "PrBL")
                       .Choice("glwS", "SrcC")
                       .Pixels("Ckmt", 30)
                       .Pixels("blur", 14)
                       .Percent("ShdN", 8)}}},
        {"satin",
         {{"ChFX", lit(19)
                       .Color("Clr ", 0x402060)
                       .Pixels("Dstn", 11)
                       .Pixels("blur", 9)
                       .Flag("Invr")
                       .Object("MpgS", Contour({{0, 0}, {128, 255}, {255, 0}}))}}},
        {"gradient-overlay",
         {{"GrFl", Items()
                       .Shown("Nrml", 90)
                       .Object("Grad", dusk)
                       .Angle("Angl", 60)
                       .Choice("Type", "Rflc")
                       .Percent("Scl ", 80)
                       .Offset("Ofst", 10, 0)
                       .Choice("gs99", "Perc")}}},
        {"pattern-overlay",
         {{"patternFill", Items()
                              .Shown()
                              .Object("Ptrn", WeavePattern())
                              .Angle("Angl", 20)
                              .Percent("Scl ", 70)
                              .Offset("phase", 3, 5)}}},
        {"stroke",
         {{"FrFX", Items()
                       .Shown()
                       .Pixels("Sz  ", 5)
                       .Choice("Styl", "OutF")
                       .Choice("PntT", "GrFl")
                       .Object("Grad", dusk)
                       .Choice("Type", "shapeburst")}}},
        {"stroke-pattern",
         {{"FrFX", Items()
                       .Shown()
                       .Pixels("Sz  ", 7)
                       .Choice("Styl", "CtrF")
                       .Choice("PntT", "Ptrn")
                       .Object("Ptrn", WeavePattern())}}},
        {"bevel",
         {{"ebbl",
           shaded(bevel).Choice("bvlS", "Embs").Percent("srgR", 100).Pixels("blur", 12).Pixels("Sftn", 2)}}},
        {"bevel-chiselled",
         {{"ebbl", shaded(bevel)
                       .Choice("bvlS", "InrB")
                       .Choice("bvlT", "PrBL")
                       .Percent("srgR", 80)
                       .Pixels("blur", 9)
                       .Flag("useShape")
                       .Object("MpgS", Contour({{0, 0}, {80, 200}, {255, 255}}))
                       .Object("TrnS", Contour({{0, 0}, {150, 255}, {255, 40}}))
                       .Flag("useTexture")
                       .Object("Ptrn", WeavePattern())
                       .Percent("textureDepth", 150)}}},
    };
}

// All ten on one layer, each as far as the others leave it.
inline std::vector<EffectItems> AllEffects() {
    const Items dusk = Gradient({0xFF182060, 0xFFE05080, 0xFFFFE0A0}, 40);
    return {
        {"DrSh", Items()
                     .Shown("Mltp", 60)
                     .Angle("lagl", 120)
                     .Pixels("Dstn", 9)
                     .Pixels("blur", 10)
                     .Flag("layerConceals")},
        {"IrSh", Items().Shown("Mltp", 50).Angle("lagl", 120).Pixels("Dstn", 4).Pixels("blur", 6)},
        {"OrGl", Items().Shown("Scrn", 80).Color("Clr ", 0x80C0FF).Choice("GlwT", "SfBL").Pixels("blur", 12)},
        {"IrGl", Items().Shown("Scrn", 60).Color("Clr ", 0xFFF0A0).Pixels("blur", 9)},
        {"ChFX", Items().Shown("Mltp", 40).Angle("lagl", 19).Pixels("Dstn", 11).Pixels("blur", 9)},
        {"SoFi", Items().Shown("Nrml", 20).Color("Clr ", 0x3CA05A)},
        {"GrFl", Items().Shown("Nrml", 50).Object("Grad", dusk).Angle("Angl", 90)},
        {"patternFill", Items().Shown("SftL", 70).Object("Ptrn", WeavePattern())},
        {"FrFX", Items().Shown().Pixels("Sz  ", 3).Choice("Styl", "OutF").Color("Clr ", 0xFFF8E0)},
        {"ebbl", Items()
                     .Flag("enab")
                     .Choice("bvlS", "InrB")
                     .Choice("hglM", "Scrn")
                     .Color("hglC", 0xFFFFFF)
                     .Percent("hglO", 75)
                     .Choice("sdwM", "Mltp")
                     .Percent("sdwO", 75)
                     .Angle("lagl", 120)
                     .Angle("Lald", 30)
                     .Percent("srgR", 100)
                     .Pixels("blur", 6)},
    };
}

// Of the layers of the picture that shows what the product can do: all ten, spread over it.
struct PictureEffects {
    static Items Lit(std::string_view mode, double opacity, uint32_t color, double distance, double size) {
        return Items()
            .Shown(mode, opacity)
            .Color("Clr ", color)
            .Angle("lagl", 135)
            .Pixels("Dstn", distance)
            .Pixels("blur", size);
    }

    std::vector<EffectItems> sun = {{"OrGl", Lit("Scrn", 80, 0xFFD080, 0, 60)},
                                    {"IrGl", Lit("Nrml", 90, 0xFFB040, 0, 16)}};
    std::vector<EffectItems> farHills = {
        {"GrFl",
         Items().Shown("Nrml", 70).Object("Grad", Gradient({0xFF5A3A84, 0xFFD08AA8})).Angle("Angl", 90)}};
    std::vector<EffectItems> nearHills = {{"SoFi", Items().Shown("Nrml", 35).Color("Clr ", 0x301848)},
                                          {"IrSh", Lit("Scrn", 60, 0xFFC890, 5, 8)}};
    std::vector<EffectItems> water = {
        {"patternFill", Items().Shown("SftL", 45).Object("Ptrn", WeavePattern()).Percent("Scl ", 150)}};
    std::vector<EffectItems> cube = {
        {"DrSh", Lit("Mltp", 70, 0x0A0528, 14, 16)},
        {"ChFX", Lit("Scrn", 20, 0xFFE0FF, 18, 14)},
        {"FrFX", Items().Shown().Pixels("Sz  ", 3).Choice("Styl", "OutF").Color("Clr ", 0xFFF0D8)},
        {"ebbl", Items()
                     .Flag("enab")
                     .Choice("bvlS", "InrB")
                     .Choice("hglM", "Scrn")
                     .Color("hglC", 0xFFFFFF)
                     .Percent("hglO", 70)
                     .Choice("sdwM", "Mltp")
                     .Color("sdwC", 0x201040)
                     .Percent("sdwO", 60)
                     .Angle("lagl", 135)
                     .Angle("Lald", 30)
                     .Percent("srgR", 100)
                     .Pixels("blur", 8)}};
};

}  // namespace tessary::tools
