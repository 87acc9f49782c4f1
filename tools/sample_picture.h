// Pictures for the samples: anti-aliased shapes painted over one another.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "render/pixel.h"

namespace tessary::tools {

struct Point {
    double x, y;
};
using Shape = std::function<double(Point)>;    // signed distance in pixels, negative inside
using Paint = std::function<uint32_t(Point)>;  // 0xAARRGGBB

inline uint32_t Mix(uint32_t from, uint32_t to, double share) {
    const double t = std::clamp(share, 0.0, 1.0);
    uint32_t mixed = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        const double a = from >> shift & 255, b = to >> shift & 255;
        mixed |= static_cast<uint32_t>(a + (b - a) * t + 0.5) << shift;
    }
    return mixed;
}

inline Paint Flat(uint32_t color) {
    return [=](Point) { return color; };
}
inline Paint Down(const std::vector<uint32_t>& stops, double height) {
    return [=](Point p) {
        const double at = std::clamp(p.y / height, 0.0, 0.9999) * static_cast<double>(stops.size() - 1);
        const size_t i = static_cast<size_t>(at);
        return Mix(stops[i], stops[i + 1], at - std::floor(at));
    };
}
inline Paint Hues(double width, double value) {
    return [=](Point p) {
        uint32_t color = 0xFF;
        for (int i = 0; i < 3; ++i) {
            const double turn = p.x / width + (3 - i) / 3.0;
            const double ramp = std::clamp(std::abs(6 * (turn - std::floor(turn)) - 3) - 1, 0.0, 1.0);
            color = color << 8 | static_cast<uint32_t>(ramp * value * 255);
        }
        return color;
    };
}

inline double Everywhere(Point) { return -100; }
inline Shape Disc(double cx, double cy, double radius) {
    return [=](Point p) { return std::hypot(p.x - cx, p.y - cy) - radius; };
}
inline Shape Box(double left, double top, double right, double bottom, double corner = 0) {
    return [=](Point p) {
        const double dx = std::abs(p.x - (left + right) / 2) - (right - left) / 2 + corner;
        const double dy = std::abs(p.y - (top + bottom) / 2) - (bottom - top) / 2 + corner;
        return std::hypot(std::max(dx, 0.0), std::max(dy, 0.0)) + std::min(std::max(dx, dy), 0.0) - corner;
    };
}
// Convex, corners clockwise on the screen.
inline Shape Polygon(const std::vector<Point>& corners) {
    return [=](Point p) {
        double distance = -1e9;
        for (size_t i = 0; i < corners.size(); ++i) {
            const Point a = corners[i], b = corners[(i + 1) % corners.size()];
            const double ex = b.x - a.x, ey = b.y - a.y;
            distance = std::max(distance, ((p.x - a.x) * ey - (p.y - a.y) * ex) / std::hypot(ex, ey));
        }
        return distance;
    };
}
inline Shape Hills(double base, double height, double length, double phase) {
    return [=](Point p) {
        const double wave = std::sin(p.x / length + phase) + 0.5 * std::sin(2.3 * p.x / length + 2 * phase);
        return base - height * wave - p.y;
    };
}

struct Picture {
    Picture(int32_t w, int32_t h)
        : width(w), height(h), pixels(static_cast<size_t>(w) * static_cast<size_t>(h)) {}

    // Paints a shape over what is there; its edge is `softness` pixels wide.
    Picture& Draw(const Shape& shape, const Paint& paint, double softness = 1) {
        for (size_t i = 0; i < pixels.size(); ++i) {
            const Point p = At(i);
            const uint32_t source = paint(p), under = pixels[i];
            const double covered = std::clamp(0.5 - shape(p) / softness, 0.0, 1.0) * Alpha(source) / 255;
            const double alpha = covered + Alpha(under) / 255.0 * (1 - covered);
            if (covered <= 0) continue;
            const uint32_t color = Mix(under, source, covered / alpha) & 0xFFFFFF;
            pixels[i] = static_cast<uint32_t>(alpha * 255 + 0.5) << 24 | color;
        }
        return *this;
    }
    Point At(size_t i) const {
        const size_t w = static_cast<size_t>(width);
        return {static_cast<double>(i % w) + 0.5, static_cast<double>(i / w) + 0.5};
    }

    int32_t width, height;
    std::vector<uint32_t> pixels;
};

inline Picture Scene(int32_t width, int32_t height) {
    const double w = width, h = height;
    Picture scene(width, height);
    scene.Draw(Everywhere, Down({0xFF2B3A8C, 0xFF7FA8E0, 0xFFFFE3B0}, h * 0.7))
        .Draw(Disc(w * 0.7, h * 0.35, h * 0.13), Flat(0xFFFFF6C8))
        .Draw(Hills(h * 0.68, h * 0.1, w * 0.13, 1), Down({0xFF5B7F5B, 0xFF86B36A}, h))
        .Draw(Hills(h * 0.85, h * 0.06, w * 0.1, 3), Flat(0xFF2F5D3A))
        .Draw(Box(w * 0.15, h * 0.55, w * 0.3, h * 0.78, 2), Flat(0xFFC2483A))
        .Draw(Polygon({{w * 0.225, h * 0.4}, {w * 0.34, h * 0.56}, {w * 0.11, h * 0.56}}), Flat(0xFF5A2A2A));
    return scene;
}

}  // namespace tessary::tools
