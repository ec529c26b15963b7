// What looks on at the board: FOLDER/view.sock, SOCK_SEQPACKET, one kind of view a connection.
//
// A client sends one ViewRequest and gets packets of that kind, each a struct from below. Screen
// and camera come only against credit: one packet of one byte (any) for every packet that the
// client is ready for, sent after the request, at most `maxViewCredit` unanswered at a time. Sound
// and flips come by themselves; what a full socket does not take is left out.
//
// Whoever does not keep to this (another version, an unknown kind, a packet of another length,
// more credit than allowed, credit on and on without reading) is disconnected without a word; so is
// the 65th client. All integers are native: both ends run on one machine. Times are board time in
// ns (its CLOCK_MONOTONIC).
#pragma once

#include <cstdint>

namespace board::wire {

constexpr std::uint32_t viewVersion = 1;
constexpr char viewSocketName[] = "view.sock";  // in the run folder
constexpr unsigned maxViewCredit = 16;
constexpr unsigned maxViewClients = 64;

enum class ViewKind : std::uint32_t { screen = 1, camera = 2, sound = 3, flips = 4 };

struct ViewRequest {
    std::uint32_t version;
    ViewKind kind;
};

// What is on screen, with the descriptor of the frame buffer's own memory, open for reading: map it
// from 0 (fstat says how long it is and, by st_ino, whether it is mapped already) with MAP_SHARED.
// Planes that lie in two memories come with two descriptors, the second one for plane 1. A black
// picture comes without any.
//
// On credit the picture is sent at once unless this client has it already, else when the next one
// comes on screen. The memory is the one that the program draws into: it is left in peace until the
// next flip (ViewFlip::flip greater than `flip`) at least, and may change from then on; a mark in
// the copy that is not `mark` tells as well.
struct ViewPicture {
    std::uint32_t format;         // DRM_FORMAT_NV12, DRM_FORMAT_XRGB8888; 0: black
    std::uint32_t width, height;  // of the visible part, pixels; black ones have a size, too
    std::uint32_t offsets[2];     // bytes from the start of the memory to the visible part's start
    std::uint32_t pitches[2];     // bytes a line
    std::uint32_t marked;         // 1: the picture carries a camera frame's mark; 0: it does not
    std::uint32_t frame;          // number of the camera frame (modulo 2^24)
    std::uint32_t mark;     // number that the mark itself carries: in a looped stream another one
    std::int64_t taken_ns;  // when the camera delivered it; 0: unmarked, or not known
    std::int64_t shown_ns;  // when it came on screen
    std::uint64_t flip;     // page flips since the board began, this picture's included
};

// A payload as the camera delivered it, damage included, with a descriptor of memory that holds a
// copy of `bytes` bytes (none when 0) and never changes. Payloads without credit are left out.
struct ViewPayload {
    std::uint32_t fourcc;         // V4L2_PIX_FMT_...
    std::uint32_t width, height;  // pixels
    std::uint32_t bytes;
    std::uint32_t frame;    // number of the frame; marks carry it modulo 2^24
    std::uint32_t flagged;  // 1: delivered with the buffer's error flag
    std::int64_t time_ns;   // when it was delivered
};

enum class ViewCard : std::uint32_t { microphone = 0, output = 1 };

// What the microphone heard (the program may have it now) or what the output played. `frames`
// frames follow in the same packet, channels interleaved, as in the stream's ring.
struct ViewSound {
    ViewCard card;
    std::uint32_t rate_Hz;
    std::uint32_t channels;
    std::uint32_t format;  // SNDRV_PCM_FORMAT_...
    std::uint32_t frames;
    std::uint32_t reserved;
    std::uint64_t first;   // number of the first one, counted over the card's whole life: a gap
                           // means that packets were left out
    std::int64_t time_ns;  // when the last one was moved
};

constexpr std::uint32_t maxViewSoundBytes = 32u << 10;  // of frames in one packet

// A completed page flip.
struct ViewFlip {
    std::int64_t shown_ns;
    std::int64_t taken_ns;   // when the camera delivered what is shown; 0: unmarked, or not known
    std::uint64_t flip;      // number since the board began, from 1: one more each time
    std::uint32_t marked;    // 1: the picture carries a camera frame's mark
    std::uint32_t frame;     // number of the camera frame (modulo 2^24)
    std::uint32_t repeated;  // 1: the same frame number as the marked picture before
    std::uint32_t skipped;   // frame numbers left out since that one
};

}  // namespace board::wire
