// What one frame costs in the software 2D engine. A frame has 33.3 ms at 30 pictures a second and
// 16.7 ms at 60: 1 ms of CPU is 3 or 6 % of a core.
#include <benchmark/benchmark.h>
#include <libyuv.h>
#include <rga/RockchipRga.h>
#include <rga/rga.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

struct Size {
    int width, height;
};

std::size_t pixels(const Size& size) {
    return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

std::vector<std::uint8_t> picture(std::size_t bytes) {
    std::vector<std::uint8_t> memory(bytes);
    std::uint32_t state = 1;
    for (std::uint8_t& value : memory) {
        state = state * 1664525 + 1013904223;
        value = static_cast<std::uint8_t>(state >> 24);
    }
    return memory;
}

rga_info_t record(std::vector<std::uint8_t>& memory, const Size& size, int code) {
    rga_info_t info;
    std::memset(&info, 0, sizeof info);
    info.fd = -1;
    info.virAddr = memory.data();
    rga_set_rect(&info.rect, 0, 0, size.width, size.height, size.width, size.height, code);
    return info;
}

// The camera's packed frame to the screen: unpacked by the program, then one blit.
void yuyvToNv12(benchmark::State& state, Size camera, Size screen) {
    const int width = camera.width;
    std::vector<std::uint8_t> frame = picture(pixels(camera) * 2);
    std::vector<std::uint8_t> target(pixels(screen) * 3 / 2);
    RockchipRga engine;
    for (auto _ : state) {
        std::vector<std::uint8_t> planes(pixels(camera) * 3);
        std::uint8_t* u = planes.data() + pixels(camera);
        std::uint8_t* v = u + pixels(camera) / 4;
        libyuv::YUY2ToI420(frame.data(), width * 2, planes.data(), width, u, width / 2, v,
                           width / 2, width, camera.height);
        rga_info_t src = record(planes, camera, RK_FORMAT_YCrCb_420_P);
        rga_info_t dst = record(target, screen, RK_FORMAT_YCrCb_420_SP);
        if (engine.RkRgaBlit(&src, &dst, nullptr) != 0) {
            state.SkipWithError("the blit was refused");
            break;
        }
        benchmark::DoNotOptimize(target.data());
    }
}

void blit(benchmark::State& state, int from, Size camera, int to, Size screen) {
    std::vector<std::uint8_t> frame = picture(pixels(camera) * 3);
    std::vector<std::uint8_t> target(pixels(screen) * 2);
    RockchipRga engine;
    for (auto _ : state) {
        rga_info_t src = record(frame, camera, from);
        rga_info_t dst = record(target, screen, to);
        if (engine.RkRgaBlit(&src, &dst, nullptr) != 0) {
            state.SkipWithError("the blit was refused");
            break;
        }
        benchmark::DoNotOptimize(target.data());
    }
}

constexpr Size hd{1280, 720};
constexpr Size fullHd{1920, 1080};
constexpr Size uhd{3840, 2160};
constexpr int nv12 = RK_FORMAT_YCrCb_420_SP;

BENCHMARK_CAPTURE(yuyvToNv12, 1080p_same_size, fullHd, fullHd)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(yuyvToNv12, 720p_to_1080p, hd, fullHd)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(yuyvToNv12, 1080p_to_2160p, fullHd, uhd)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, nv12_1080p_same_size, nv12, fullHd, nv12, fullHd)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, nv12_720p_to_1080p, nv12, hd, nv12, fullHd)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, nv12_2160p_to_1080p, nv12, uhd, nv12, fullHd)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, nv16_1080p_same_size, RK_FORMAT_YCrCb_422_SP, fullHd, nv12, fullHd)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, rgb_1080p_same_size, RK_FORMAT_BGR_888, fullHd, nv12, fullHd)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(blit, nv12_1080p_to_rgb565, nv12, fullHd, RK_FORMAT_RGB_565, fullHd)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
