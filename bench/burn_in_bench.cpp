// Burning 20 mixed annotations (filled and hollow rectangles, text boxes,
// ellipses, lines with arrow heads, freehand strokes) into an A4 page at
// 300 dpi, bi-level and 24-bit, against ImageMagick drawing the same shapes
// with -draw on a page of the same size, in one run.
//
// Each library row makes a white page and burns the list into it in place;
// each ImageMagick row runs convert on a white canvas of the same size (the
// bi-level row thresholds the result) and discards the image. Compare the
// real times of the rows.
//
//   cmake -S . -B build/bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/bench --target burn_in_bench && build/bench/bench/burn_in_bench
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>

#include "annotations/annotation.h"
#include "annotations/burn_in.h"
#include "dib/dib_layout.h"
#include "dib/image.h"

namespace {

using velmora::Annotation;
using velmora::AnnotationFamily;
using velmora::AnnotationList;

constexpr int32_t kWidth = 2480, kHeight = 3508;  // A4 at 300 dpi
constexpr int32_t kPelsPerMeter = 11811;
const char kFont[] = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";

// The annotations, and the same drawing as an ImageMagick argument list
// (whose pixel centres lie on whole coordinates, half a pixel before ours).
struct Scene {
    AnnotationList list;
    std::string magick;
};

std::string Hex(uint32_t color) {
    char text[8];
    std::snprintf(text, sizeof text, "#%02X%02X%02X", color & 0xFF, color >> 8 & 0xFF, color >> 16 & 0xFF);
    return text;
}

std::string Number(double value) { return std::to_string(value); }

void Build(Scene* scene) {
    velmora::ErrorRecord record;
    auto add = [&](AnnotationFamily family) {
        Annotation* annotation = velmora::NewAnnotation(family, nullptr, &record);
        scene->list.Append(annotation, &record);
        return annotation;
    };
    std::string& im = scene->magick;
    for (int i = 0; i < 4; ++i) {  // filled rectangles
        const int32_t x = 150 + i * 550, y = 200;
        Annotation* a = add(AnnotationFamily::Rectangle);
        a->rectangle.rect = {x, y, x + 400, y + 300};
        a->rectangle.backColor = 0x3050E0u + i * 0x202000u;
        im += " -stroke none -fill '" + Hex(a->rectangle.backColor) + "' -draw 'rectangle " + Number(x - 0.5) + "," +
              Number(y - 0.5) + " " + Number(x + 399.5) + "," + Number(y + 299.5) + "'";
    }
    for (int i = 0; i < 3; ++i) {  // hollow rectangles
        const int32_t x = 200 + i * 750, y = 700, w = 8;
        Annotation* a = add(AnnotationFamily::Rectangle);
        a->rectangle.rect = {x, y, x + 600, y + 400};
        a->rectangle.borderColor = 0x000080;
        a->rectangle.borderStyle = 1;
        a->rectangle.borderWidth = w;
        im += " -fill none -stroke '#800000' -strokewidth 8 -draw 'rectangle " + Number(x + w / 2 - 0.5) + "," +
              Number(y + w / 2 - 0.5) + " " + Number(x + 600 - w / 2 - 0.5) + "," + Number(y + 400 - w / 2 - 0.5) + "'";
    }
    static const char16_t kText[] = u"Burned in: this text box wraps its words inside the rectangle";
    for (int i = 0; i < 4; ++i) {  // text boxes
        const int32_t x = 200 + (i % 2) * 1150, y = 1250 + (i / 2) * 450;
        Annotation* a = add(AnnotationFamily::Rectangle);
        a->rectangle.rect = {x, y, x + 1000, y + 350};
        a->rectangle.textColor = 0;
        a->rectangle.textSize = 18;
        std::memcpy(a->rectangle.fontFace, u"Liberation Sans", sizeof u"Liberation Sans");
        a->rectangle.text.Assign(kText, sizeof kText / 2 - 1, &record);
        im += " -stroke none -fill black -font " + std::string(kFont) + " -pointsize 75 -draw \"text " + Number(x) +
              "," + Number(y + 70) + " 'Burned in: this text box wraps its'\" -draw \"text " + Number(x) + "," +
              Number(y + 155) + " 'words inside the rectangle'\"";
    }
    for (int i = 0; i < 3; ++i) {  // ellipses, two filled, one outlined
        const int32_t x = 200 + i * 750, y = 2200;
        Annotation* a = add(AnnotationFamily::Ellipse);
        a->ellipse.rect = {x, y, x + 600, y + 400};
        const bool filled = i < 2;
        (filled ? a->ellipse.fillColor : a->ellipse.outlineColor) = 0x20A020;
        a->ellipse.outlineWidth = filled ? 0 : 10;
        const double inset = filled ? 0 : 5;
        im += std::string(filled ? " -stroke none -fill '#20A020'" : " -fill none -stroke '#20A020' -strokewidth 10") +
              " -draw 'ellipse " + Number(x + 299.5) + "," + Number(y + 199.5) + " " + Number(300 - inset) + "," +
              Number(200 - inset) + " 0,360'";
    }
    for (int i = 0; i < 4; ++i) {  // lines with an arrow head at the end
        const int32_t x = 200 + i * 550, y = 2750, w = 6;
        Annotation* a = add(AnnotationFamily::Line);
        a->line.first = {x, y};
        a->line.second = {x + 400, y + 250};
        a->line.width = w;
        a->line.endWord = 1;
        im += " -fill none -stroke black -strokewidth 6 -draw 'stroke-linecap round line " + Number(x) + "," +
              Number(y) + " " + Number(x + 388) + "," + Number(y + 243) + "' -stroke none -fill black -draw 'polygon " +
              Number(x + 400) + "," + Number(y + 250) + " " + Number(x + 367) + "," + Number(y + 250) + " " +
              Number(x + 387) + "," + Number(y + 218) + "'";
    }
    for (int i = 0; i < 2; ++i) {  // freehand strokes of 60 points
        Annotation* a = add(AnnotationFamily::Freehand);
        a->freehand.lineColor = 0xC00000;
        a->freehand.width = 5;
        std::string points;
        for (int p = 0; p < 60; ++p) {
            const velmora::AnnotationPoint point = {200 + p * 35, 3150 + i * 150 + ((p * 37) % 11) * 10};
            a->freehand.points.Append(point, &record);
            points += " " + Number(point.x) + "," + Number(point.y);
        }
        a->freehand.strokeLengths.Append(60, &record);
        im +=
            " -fill none -stroke '#0000C0' -strokewidth 5 -draw 'stroke-linecap round stroke-linejoin round "
            "polyline" +
            points + "'";
    }
}

Scene& TheScene() {
    static Scene scene;
    if (scene.list.empty()) Build(&scene);
    return scene;
}

void Velmora(benchmark::State& state, uint16_t bitCount) {
    Scene& scene = TheScene();
    static const RGBQUAD kBilevel[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    for (auto _ : state) {
        velmora::ErrorRecord record;
        HGLOBAL page = velmora::CreatePackedDib(kWidth, kHeight, bitCount, bitCount == 1 ? kBilevel : nullptr,
                                                bitCount == 1 ? 2 : 0, kPelsPerMeter, kPelsPerMeter, &record);
        {
            velmora::ImageLock lock(page);
            std::memset(velmora::PackedBits(lock.header()), 0xFF, velmora::RowStride(lock.header()) * kHeight);
            const HGLOBAL result = velmora::BurnInAnnotationList(
                &scene.list, {0, page, lock.header(), velmora::kBurnInKeepImage}, nullptr, &record);
            if (result != velmora::BurnedInPlace()) state.SkipWithError("burn-in failed");
        }
        velmora::FreeImage(&page);
    }
}

void Magick(benchmark::State& state, bool bilevel) {
    const std::string command = "/usr/bin/convert -size " + std::to_string(kWidth) + "x" + std::to_string(kHeight) +
                                " xc:white" + TheScene().magick + (bilevel ? " -threshold 50%" : "") +
                                " null: 2>/dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) state.SkipWithError("convert failed");
    }
}

void VelmoraBilevel(benchmark::State& state) { Velmora(state, 1); }
void VelmoraColor(benchmark::State& state) { Velmora(state, 24); }
void MagickBilevel(benchmark::State& state) { Magick(state, true); }
void MagickColor(benchmark::State& state) { Magick(state, false); }

BENCHMARK(VelmoraBilevel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MagickBilevel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(VelmoraColor)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MagickColor)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
