// Pointers are the client's to write: nothing that it writes leads out of the ring.
#include "tests/board/sound/soundbench.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace {

using soundbench::period;
using soundbench::Rig;

constexpr std::int64_t millisecond = 1000000;
constexpr std::size_t page = 4096;
constexpr std::uint8_t mark = 0xA5;

// The memory on both sides of a stream's ring: the rest of its last page is marked, and a page that
// nobody may touch lies before and behind, where the place was free.
class Surroundings {
  public:
    explicit Surroundings(const board::SoundRing& ring) : ring_(ring) {
        std::memset(tail(), mark, tailBytes());
        fence(ring.data() - page);
        fence(ring.data() + ring.mappedBytes());
    }
    ~Surroundings() {
        for (void* const place : fences_)
            ::munmap(place, page);
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    std::size_t tailBytes() const { return ring_.mappedBytes() - ring_.bytes(); }
    bool untouched() const {
        return std::all_of(tail(), tail() + tailBytes(), [](auto byte) { return byte == mark; });
    }

  private:
    std::uint8_t* tail() const { return ring_.data() + ring_.bytes(); }
    void fence(void* place) {
        if (::mmap(place, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1,
                   0) == place)
            fences_.push_back(place);
    }

    const board::SoundRing& ring_;
    std::vector<void*> fences_;
};

// `freeRunning`: no distance between the pointers stops the stream.
struct Client {
    bool playback, freeRunning;
};

void PrintTo(const Client& client, std::ostream* out) {
    *out << (client.playback ? "playback" : "capture")
         << (client.freeRunning ? ", free running" : "");
}

class HostilePointers : public testing::TestWithParam<Client> {
  protected:
    // A small ring where nothing can stop the stream: the card comes past its end.
    void SetUp() override {
        rig.prepare(GetParam().freeRunning ? 10 : 100);
        setStop(GetParam().freeRunning ? LONG_MAX : rig.buffer);
        start();
    }

    void setStop(snd_pcm_uframes_t threshold) {
        snd_pcm_sw_params software{};
        software.avail_min = period;
        software.start_threshold = 1;
        software.stop_threshold = threshold;
        ASSERT_EQ(rig.stream->setSoftware(software), 0);
        boundary = software.boundary;
    }

    void start() {
        if (GetParam().playback)
            ASSERT_EQ(rig.write(period), period);
        else
            ASSERT_EQ(rig.stream->start(), 0);
        ASSERT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
    }

    // Taken as it is when it can be a pointer, refused and without effect when it cannot.
    void setPointer(snd_pcm_uframes_t wild) {
        snd_pcm_sync_ptr pointers{};
        pointers.c.control.appl_ptr = wild;
        pointers.c.control.avail_min = wild;
        const bool possible = wild < boundary;
        ASSERT_EQ(rig.stream->pointers(pointers), possible ? 0 : -EINVAL);
        snd_pcm_status status{};
        rig.stream->status(status);
        EXPECT_EQ(status.appl_ptr == wild, possible);
    }

    // Everything that reckons with the pointers.
    void useAll(snd_pcm_uframes_t wild) {
        rig.bench.runFor(60 * millisecond);
        snd_pcm_sframes_t delay = 0;
        rig.stream->delay(delay);
        EXPECT_LE(delay, std::int64_t(GetParam().playback ? rig.buffer : boundary));
        EXPECT_LE(rig.stream->rewind(wild), rig.buffer);
        move();
        EXPECT_LE(rig.stream->forward(wild), std::int64_t(boundary));
        move();
        rig.bench.runFor(60 * millisecond);
        snd_pcm_status status{};
        rig.stream->status(status);
        EXPECT_LT(status.appl_ptr, boundary);
        EXPECT_LT(status.hw_ptr, boundary);
        EXPECT_LE(status.avail, boundary);
    }

    // More than the ring holds at once.
    void move() {
        const std::int64_t most = 2 * std::int64_t(rig.buffer);
        if (GetParam().playback) {
            EXPECT_LE(rig.write(std::size_t(most)), most);
            return;
        }
        EXPECT_LE(rig.read(std::size_t(most)), most);
        // What the microphone did not hear may be old, but comes from the ring.
        for (std::size_t at = 0; at < rig.heard.size(); at += 4) {
            std::uint32_t number = 0;
            std::memcpy(&number, rig.heard.data() + at, 4);
            ASSERT_LE(number, rig.notes.next) << "frame " << at / 4;
        }
    }

    // All that the card moved lay in the ring, and it counted all of it.
    void expectInside(const Surroundings& around) {
        EXPECT_TRUE(around.untouched());
        const board::SoundRing& ring = *rig.stream->ring();
        if (rig.notes.lowest != nullptr) {
            EXPECT_GE(rig.notes.lowest, ring.data());
            EXPECT_LE(rig.notes.highest, ring.data() + ring.bytes());
        }
        const std::uint64_t moved =
            GetParam().playback ? rig.notes.played.size() / 4 : rig.notes.next;
        EXPECT_EQ(rig.figures.frames, moved);
    }

    // A client that behaves finds the stream as new.
    void expectPlain() {
        ASSERT_EQ(rig.stream->drop(), 0);
        rig.prepare();
        const std::uint64_t before = rig.figures.frames;
        const std::uint32_t last = rig.notes.next;
        start();
        if (GetParam().playback) {
            ASSERT_EQ(rig.stream->drain(), -EAGAIN);
            ASSERT_TRUE(
                rig.bench.runUntil([&] { return rig.stream->state() == SNDRV_PCM_STATE_SETUP; }));
            EXPECT_EQ(rig.figures.frames - before, period);
            EXPECT_TRUE(std::all_of(rig.notes.played.end() - 4 * period, rig.notes.played.end(),
                                    [](auto byte) { return byte == 7; }));
            return;
        }
        ASSERT_TRUE(rig.bench.runUntil([&] { return rig.readable(POLLIN); }));
        ASSERT_EQ(rig.read(period), period);
        for (std::uint32_t i = 0; i < period; ++i) {
            std::uint32_t number = 0;
            std::memcpy(&number, rig.heard.data() + 4 * std::size_t(i), 4);
            ASSERT_EQ(number, last + i + 1);
        }
    }

    Rig rig{GetParam().playback, 3};
    snd_pcm_uframes_t boundary = 0;
};

TEST_P(HostilePointers, StayInsideTheRing) {
    const auto ring = snd_pcm_uframes_t(rig.buffer);
    const snd_pcm_uframes_t wilds[] = {3 * ring + 1, ring - 1,        1UL << 62U, boundary - 1,
                                       boundary,     LONG_MAX - ring, LONG_MAX,   ~0UL};
    for (const snd_pcm_uframes_t wild : wilds) {
        SCOPED_TRACE(wild);
        ASSERT_EQ(rig.stream->drop(), 0);
        SetUp();
        {
            const Surroundings around(*rig.stream->ring());
            ASSERT_GT(around.tailBytes(), 0u);
            rig.notes.lowest = rig.notes.highest = nullptr;
            setPointer(wild);
            useAll(wild);
            expectInside(around);
        }
        expectPlain();
        if (HasFatalFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Clients, HostilePointers,
                         testing::Values(Client{true, false}, Client{true, true},
                                         Client{false, false}, Client{false, true}),
                         [](const auto& test) {
                             return std::string(test.param.playback ? "playback" : "capture") +
                                    (test.param.freeRunning ? "FreeRunning" : "");
                         });

}  // namespace
