// What one picture costs in the software decoder. A picture has 33.3 ms at 30 a second and 16.7 ms
// at 60: 1 ms of CPU is 3 or 6 % of a core. CPU time of the whole process, because the decoder
// works on a thread of its own.
#include <benchmark/benchmark.h>
#include <rockchip/rk_mpi.h>

#include <cstdint>
#include <vector>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

namespace {

using coded::Bytes;

// Like a camera's: about 2 bits a pixel.
void jpeg(benchmark::State& state, int width, int height, int down) {
    coded::Jpeg how;
    how.width = width;
    how.height = height;
    how.down = down;
    const Bytes bytes = coded::encode(how);
    const auto area = static_cast<std::size_t>((width + 15) / 16 * 16) *
                      static_cast<std::size_t>((height + 15) / 16 * 16);
    client::Mjpeg decoder(area * 4);
    for (auto _ : state) {
        MppTask task = nullptr;
        decoder.send(bytes);
        decoder.mpi->poll(decoder.ctx, MPP_PORT_OUTPUT, MPP_POLL_BLOCK);
        decoder.mpi->dequeue(decoder.ctx, MPP_PORT_OUTPUT, &task);
        MppFrame frame = nullptr;
        mpp_task_meta_get_frame(task, KEY_OUTPUT_FRAME, &frame);
        if (mpp_frame_get_errinfo(frame) != 0) {
            state.SkipWithError("not decoded");
            break;
        }
        decoder.mpi->enqueue(decoder.ctx, MPP_PORT_OUTPUT, task);
    }
    state.counters["KB"] = static_cast<double>(bytes.size()) / 1000;
}

void avc(benchmark::State& state, int width, int height, const char* rate) {
    coded::Avc how;
    how.width = width;
    how.height = height;
    how.frames = 60;
    how.keyDistance = 30;
    how.more = rate;
    const std::vector<Bytes> units = coded::encode(how);
    client::Avc decoder;
    std::size_t next = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        // One picture in, one out (three behind, at the beginning).
        RK_S64 forever = -1;
        decoder.mpi->control(decoder.ctx, MPP_SET_INPUT_TIMEOUT, &forever);
        decoder.put(units[next]);
        bytes += units[next].size();
        next = (next + 1) % units.size();
        MppFrame frame = nullptr;
        while ((frame = decoder.take(0)) != nullptr) {
            if (mpp_frame_get_info_change(frame) != 0) {
                decoder.answer(frame);
            }
            mpp_frame_deinit(&frame);
        }
    }
    decoder.finish();
    state.counters["KB"] =
        static_cast<double>(bytes) / 1000 / static_cast<double>(state.iterations());
}

void common(benchmark::internal::Benchmark* one) {
    one->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
}

}  // namespace

BENCHMARK_CAPTURE(jpeg, 1080p_420, 1920, 1080, 2)->Apply(common);
BENCHMARK_CAPTURE(jpeg, 1080p_422, 1920, 1080, 1)->Apply(common);
BENCHMARK_CAPTURE(jpeg, 720p_420, 1280, 720, 2)->Apply(common);
BENCHMARK_CAPTURE(jpeg, 2160p_420, 3840, 2160, 2)->Apply(common);
BENCHMARK_CAPTURE(avc, 1080p_8Mbit, 1920, 1080, "bitrate=8000")->Apply(common);
BENCHMARK_CAPTURE(avc, 2160p_8Mbit, 3840, 2160, "bitrate=8000")->Apply(common);

BENCHMARK_MAIN();
