// Bevel and emboss: a surface rises at the edge of the layer, and light falls on it.
#include <cmath>

#include "document/patterns.h"
#include "properties/effect_heights.h"
#include "properties/effect_paint.h"
#include "properties/effect_renderers.h"
#include "properties/effect_steps.h"

namespace tessary {
namespace {

constexpr float kPi = 3.14159265f;

enum BevelBuffer : uint32_t {
    kOuterHighlight = 9,
    kInnerHighlight = 10,
    kOuterShadow = 11,
    kInnerShadow = 12
};

bool HasInner(const BevelSettings& bevel) { return bevel.style != BevelSettings::kOuter; }
bool HasOuter(const BevelSettings& bevel) { return bevel.style != BevelSettings::kInner; }

// How far the edge is spread, to each side of it for an emboss.
int32_t BevelRadius(const BevelSettings& bevel) {
    switch (bevel.style) {
    case BevelSettings::kInner:
    case BevelSettings::kOuter: return bevel.size;
    case BevelSettings::kEmboss:
    case BevelSettings::kPillowEmboss: return (bevel.size + 1) / 2;
    default: return 0;
    }
}

// A contour between its entries, from 0..1 to 0..1.
struct SmoothContour {
    float values[257];

    SmoothContour(const ContourSettings& contour, bool antiAlias) {
        uint8_t table[256];
        BuildContourTable(contour, antiAlias, table);
        for (size_t i = 0; i < 256; ++i) values[i] = static_cast<float>(table[i]) / 255;
        values[256] = values[255];
    }
    float At(float share) const {
        const float place = 255 * std::clamp(share, 0.0f, 1.0f);
        const size_t index = static_cast<size_t>(place);
        return values[index] + (values[index + 1] - values[index]) * (place - static_cast<float>(index));
    }
};

// Heights that follow the coverage, 0..1.
void CopyCoverage(const PsdLayer& layer, const HeightPlane& heights) {
    uint8_t coverage[kBlendRunPixels];
    for (size_t y = 0; y < heights.Rows(); ++y) {
        float* const row = heights.Row(y);
        for (size_t x = 0; x < heights.Columns(); x += kBlendRunPixels) {
            const size_t count = std::min(kBlendRunPixels, heights.Columns() - x);
            CoverageAt(layer, heights.bounds.left + static_cast<int64_t>(x),
                       heights.bounds.top + static_cast<int64_t>(y), count, coverage);
            for (size_t i = 0; i < count; ++i) row[x + i] = static_cast<float>(coverage[i]) / 255;
        }
    }
}

// Adds a slope of one side of the edge, `sign` at its far end.
PsdReadResult AddSlope(const PsdLayer& layer, const HeightPlane& heights, bool isInward, int32_t radius,
                       float sign) {
    CoveragePlane plane;
    auto result = MakeCoverage(layer, heights.bounds, isInward, plane);
    if (result != PsdReadResult::kOk) return result;
    const size_t count = heights.values.count();
    const Owned<uint32_t> distances = AllocateZeroed<uint32_t>({count});
    if (!distances) return PsdReadResult::kOutOfMemory;
    result = MeasureDistances(plane, static_cast<uint32_t>(radius) + 1, 0, distances.get());
    if (result != PsdReadResult::kOk) return result;
    const float longest = static_cast<float>(radius), scale = sign / longest;
    for (size_t i = 0; i < count; ++i) {
        const float distance = static_cast<float>(DistanceInPixels(distances[i]));
        heights.values[i] += std::clamp(distance, 0.0f, longest) * scale;
    }
    return PsdReadResult::kOk;
}

void ShapeHeights(const BevelSettings& bevel, const HeightPlane& heights) {
    const SmoothContour contour(bevel.contour, bevel.contourAntiAlias);
    const float factor = 100.0f / static_cast<float>(std::max(bevel.rangePercent, 1));
    for (float& height : heights.values.span())
        height = contour.At(std::min(1.0f, std::clamp(height, 0.0f, 1.0f) * factor));
}

PsdReadResult RaiseEdge(const PsdLayer& layer, const BevelSettings& bevel, const HeightPlane& heights) {
    const int32_t radius = BevelRadius(bevel);
    auto result = PsdReadResult::kOk;
    if (bevel.technique == BevelSettings::kSmooth) {
        CopyCoverage(layer, heights);
        result = BlurHeights(heights, radius);
    } else {
        if (HasInner(bevel)) result = AddSlope(layer, heights, true, radius, 1);
        if (HasOuter(bevel) && result == PsdReadResult::kOk)
            result = AddSlope(layer, heights, false, radius, -1);
        if (bevel.technique == BevelSettings::kChiselSoft && result == PsdReadResult::kOk)
            result = BlurHeights(heights, 1);
    }
    if (bevel.useContour && result == PsdReadResult::kOk) ShapeHeights(bevel, heights);
    return result;
}

// What a texture adds to the slopes.
struct Texture {
    Paint paint;
    float depth = 0;
    float flip = 1;

    // Brightness of pixels of a row, -1 where it lowers, times the depth.
    void Row(int64_t x, int64_t y, size_t count, float* values) const {
        uint32_t pixels[kPaintRun];
        for (size_t done = 0; done < count; done += kPaintRun) {
            const size_t run = std::min(kPaintRun, count - done);
            PaintRow(paint, x + static_cast<int64_t>(done), y, run, pixels);
            for (size_t i = 0; i < run; ++i) {
                const uint32_t sum = Red(pixels[i]) + Green(pixels[i]) + Blue(pixels[i]);
                values[done + i] = flip * depth * static_cast<float>(sum) / 765;
            }
        }
    }
};

Texture TextureOf(const EffectJob& job) {
    const BevelSettings& bevel = job.effects.bevel;
    Texture texture;
    if (!bevel.useTexture || bevel.textureDepthPercent == 0) return texture;
    PatternPlace place;
    place.scalePercent = bevel.textureScalePercent;
    place.originX = bevel.texturePhase.horizontal + (bevel.textureLinked ? job.layer.referenceX : 0);
    place.originY = bevel.texturePhase.vertical + (bevel.textureLinked ? job.layer.referenceY : 0);
    texture.paint = PatternPaint(FindPattern(job.document, bevel.texture.identifier), place);
    texture.depth = static_cast<float>(bevel.textureDepthPercent) / 100;
    texture.flip = bevel.textureInverted ? -1.0f : 1.0f;
    return texture;
}

// Rows above, at and below the one that is lit; those above have been lit already.
struct SlopeRows {
    Owned<float> memory;
    float* rows[3] = {};

    bool Make(size_t columns) {
        memory = AllocateZeroed<float>({3, columns});
        for (size_t i = 0; memory && i < 3; ++i) rows[i] = memory.get() + i * columns;
        return static_cast<bool>(memory);
    }
    void Turn() { std::rotate(rows, rows + 1, rows + 3); }
};

// Adds half the differences of the rows' neighbours, `factor` times, from the second column on.
void AddDifferences(const SlopeRows& slopes, float factor, size_t count, float* across, float* down) {
    const float half = factor / 2;
    const float *above = slopes.rows[0], *here = slopes.rows[1], *below = slopes.rows[2];
    for (size_t x = 1; x + 1 < count; ++x) {
        across[x] += (here[x + 1] - here[x - 1]) * half;
        down[x] += (below[x] - above[x]) * half;
    }
}

struct Light {
    float cosine, sine;        // of its angle
    float level, height;       // cosine and sine of its altitude
    float perBright, perDark;  // 1 over what is between the flat surface and full light, and none
    float sign;
};

Light LightOf(const EffectJob& job) {
    const BevelSettings& bevel = job.effects.bevel;
    const PsdImageResources& resources = job.document.resources;
    const int32_t degrees = bevel.useGlobalLight ? resources.globalAngle : bevel.angleDegrees;
    const int32_t altitude =
        bevel.useGlobalLight ? std::clamp(resources.globalAltitude, 0, 90) : bevel.altitudeDegrees;
    const double angle = degrees % 360 * double{kPi} / 180, rise = altitude * double{kPi} / 180;
    Light light;
    light.cosine = static_cast<float>(std::cos(angle));
    light.sine = static_cast<float>(std::sin(angle));
    light.level = static_cast<float>(std::cos(rise));
    light.height = static_cast<float>(std::sin(rise));
    // Light from the horizon or from straight above leaves nothing to one side.
    light.perBright = 1 - light.height < 1e-6f ? 0 : 1 / (1 - light.height);
    light.perDark = light.height < 1e-6f ? 0 : 1 / light.height;
    light.sign = bevel.directionDown ? -1.0f : 1.0f;
    return light;
}

// From slopes to what is brighter (up to 1) or darker (down to -1) than the flat surface, in place.
void LightRow(const Light& light, const SmoothContour* gloss, size_t count, float* across,
              const float* down) {
    for (size_t x = 0; x < count; ++x) {
        const float toward = down[x] * light.sine - across[x] * light.cosine;
        const float steep = std::sqrt(1 + across[x] * across[x] + down[x] * down[x]);
        across[x] = std::min(std::max((toward * light.level + light.height) / steep, 0.0f), 1.0f);
    }
    for (size_t x = 0; gloss && x < count; ++x) across[x] = gloss->At(across[x]);
    for (size_t x = 0; x < count; ++x) {
        const float apart = across[x] - light.height;
        across[x] = light.sign * apart * (apart >= 0 ? light.perBright : light.perDark);
    }
}

// Heights become light, in place. Rows and columns at the edge of the plane have no neighbours and are not
// used.
PsdReadResult LightSurface(const EffectJob& job, const HeightPlane& heights) {
    const BevelSettings& bevel = job.effects.bevel;
    const size_t columns = heights.Columns(), rows = heights.Rows();
    const Texture texture = TextureOf(job);
    const bool hasTexture = texture.paint.kind != Paint::kNothing,
               hasGloss = bevel.glossContour.points.count > 1;
    const SmoothContour gloss(bevel.glossContour, bevel.glossAntiAlias);
    const Light light = LightOf(job);
    const float steepness = static_cast<float>(BevelRadius(bevel) * bevel.depthPercent) / 100;
    SlopeRows edge, grain, slopes;
    if (!edge.Make(columns) || !slopes.Make(columns) || (hasTexture && !grain.Make(columns)))
        return PsdReadResult::kOutOfMemory;
    const int64_t left = int64_t{job.layer.bounds.left} + heights.bounds.left;
    const int64_t top = int64_t{job.layer.bounds.top} + heights.bounds.top;
    for (size_t y = 0; y < rows; ++y) {
        edge.Turn();
        std::copy_n(heights.Row(y), columns, edge.rows[2]);
        if (hasTexture) {
            grain.Turn();
            texture.Row(left, top + static_cast<int64_t>(y), columns, grain.rows[2]);
        }
        if (y < 2) continue;
        float *const across = slopes.rows[0], *const down = slopes.rows[1];
        std::fill_n(across, 2 * columns, 0.0f);
        AddDifferences(edge, steepness, columns, across, down);
        if (hasTexture) AddDifferences(grain, 1, columns, across, down);
        LightRow(light, hasGloss ? &gloss : nullptr, columns, across, down);
        std::copy_n(across, columns, heights.Row(y - 1));
    }
    return PsdReadResult::kOk;
}

// What of the light shows where the layer is, or where it is not.
void CutOut(const PsdLayer& layer, const HeightPlane& light, bool isInside, float sign, uint32_t color,
            EffectBuffer& buffer) {
    const size_t left = static_cast<size_t>(buffer.bounds.left - light.bounds.left);
    const size_t top = static_cast<size_t>(buffer.bounds.top - light.bounds.top);
    const size_t width = static_cast<size_t>(buffer.bounds.Width());
    const float* lit = light.Row(top) + left;
    const float* rowEnd = lit + width;
    const uint32_t flip = isInside ? 0 : 255;
    ForEachCovered(
        buffer, layer, buffer.bounds.left, buffer.bounds.top, [&](uint32_t& pixel, uint32_t coverage) {
            if (lit == rowEnd) {
                lit += light.Columns() - width;
                rowEnd += light.Columns();
            }
            const float bright = *lit++ * sign;
            const float alpha = std::min(std::max(bright, 0.0f), 1.0f) * static_cast<float>(coverage ^ flip);
            pixel = (color & 0x00FFFFFF) | static_cast<uint32_t>(alpha + 0.5f) << 24;
        });
}

PsdReadResult DrawSide(const EffectJob& job, const HeightPlane& light, bool isInside) {
    const BevelSettings& bevel = job.effects.bevel;
    const int32_t margin = isInside ? 0 : job.place.margin;
    Rect bounds;
    if (!GrowLayer(job.layer, margin, margin, bounds)) return PsdReadResult::kOutOfMemory;
    EffectBuffer& highlight = job.effects.buffers[isInside ? kInnerHighlight : kOuterHighlight];
    EffectBuffer& shadow = job.effects.buffers[isInside ? kInnerShadow : kOuterShadow];
    for (EffectBuffer* const buffer : {&highlight, &shadow}) {
        const auto result = PrepareBuffer(*buffer, bounds);
        if (result != PsdReadResult::kOk) return result;
    }
    const float sign = bevel.style == BevelSettings::kPillowEmboss && !isInside ? -1.0f : 1.0f;
    CutOut(job.layer, light, isInside, sign, bevel.highlightColor, highlight);
    CutOut(job.layer, light, isInside, -sign, bevel.shadowColor, shadow);
    highlight.blendMode = bevel.highlightMode;
    highlight.opacity = bevel.highlightOpacity;
    shadow.blendMode = bevel.shadowMode;
    shadow.opacity = bevel.shadowOpacity;
    return PsdReadResult::kOk;
}

PsdReadResult DrawBevel(const EffectJob& job) {
    const BevelSettings& bevel = job.effects.bevel;
    if (BevelRadius(bevel) == 0) return PsdReadResult::kOk;
    HeightPlane heights;
    const int32_t grown = job.place.margin + job.place.reach;
    if (!GrowLayer(job.layer, grown, grown, heights.bounds)) return PsdReadResult::kOutOfMemory;
    heights.values = AllocateZeroed<float>({heights.Columns(), heights.Rows()});
    if (!heights.values) return PsdReadResult::kOutOfMemory;
    auto result = RaiseEdge(job.layer, bevel, heights);
    if (result == PsdReadResult::kOk) result = LightSurface(job, heights);
    if (result == PsdReadResult::kOk) result = BlurHeights(heights, bevel.soften);
    if (result == PsdReadResult::kOk && HasOuter(bevel)) result = DrawSide(job, heights, false);
    if (result == PsdReadResult::kOk && HasInner(bevel)) result = DrawSide(job, heights, true);
    return result;
}

}  // namespace

EffectPlace PlaceOfBevel(const PsdDocument&, const EffectsRecord& effects) {
    const BevelSettings& bevel = effects.bevel;
    const int32_t radius = BevelRadius(bevel);
    if (radius == 0) return {};
    const bool isSmooth = bevel.technique == BevelSettings::kSmooth;
    const uint32_t sides = (HasInner(bevel) ? 1u : 0u) + (HasOuter(bevel) ? 1u : 0u);
    return {.margin = HasOuter(bevel) ? BlurReach(radius) : 0,
            // The surface beyond need not be flat.
            .reach = BlurReach(bevel.soften) + 1 + (isSmooth ? 0 : BlurReach(1)),
            .bytes = 4 + 8 * sides + (isSmooth ? 0 : 4 + kDistanceBytes),
            .steps = 8 * sides + (isSmooth ? 0 : kDistanceSteps * sides) + (bevel.useTexture ? 40u : 0u),
            // A blur that does not round takes four times as long.
            .blurred = 4 * ((isSmooth ? radius : 1) + bevel.soften)};
}

PsdReadResult MakeBevel(const EffectJob& job) {
    const PsdReadResult result = DrawBevel(job);
    if (result != PsdReadResult::kOk) {
        for (const uint32_t buffer : {kOuterHighlight, kInnerHighlight, kOuterShadow, kInnerShadow})
            job.effects.buffers[buffer].pixels.Reset();
        return result;
    }
    job.effects.isPending[kSlotBevel] = false;
    return result;
}

}  // namespace tessary
