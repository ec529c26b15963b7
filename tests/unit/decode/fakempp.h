// The hardware decoder's library played by the test: every call can fail on demand, pictures come
// when and as the test says. Linked instead of the engine.
#pragma once

#include <rockchip/rk_mpi.h>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace played {
struct FakeCalls;
}

// What comes out of a channel.
struct FakePicture {
    RK_U32 width = 64, height = 48;
    RK_U32 format = MPP_FMT_YUV420SP;
    RK_U32 error = 0, discard = 0;
    bool endOfStream = false;
    bool infoChange = false;
    bool withoutBuffer = false;
    std::size_t bufferSize = 64 * 48 * 2;
    unsigned char luma = 128;
    bool withTemporalId = false;
};

// One answer of decode_get_frame.
struct FakeAnswer {
    MPP_RET result = MPP_OK;
    std::optional<FakePicture> picture;
};

class FakeMpp {
  public:
    static FakeMpp& instance();
    // As new; nothing may be alive.
    void reset();

    // The nth call (from 1; 0: each one) by that name gives `result` and does nothing else. Control
    // calls are named after their command: "MPP_DEC_QUERY".
    void fail(const std::string& call, MPP_RET result, int nth = 0);
    int callsOf(const std::string& call);
    std::vector<std::string> journal();
    // Objects that were made and not given back, as text; empty when there are none.
    std::string alive();

    // Task mode: from a packet to a picture. The default shows a grey of the packet's first byte.
    std::function<FakePicture(const std::vector<unsigned char>& packet)> decode;
    // Task mode: finished tasks wait until they are let go.
    void holdOutputs(bool hold);
    // Lets the held task go whose packet began with that byte.
    void letGo(unsigned char firstByte);
    // Waits until so many tasks are held.
    bool waitForHeld(std::size_t count);
    void parkInput(bool park);              // polls of the input port find nothing
    MPP_RET pollTimeout = MPP_ERR_TIMEOUT;  // what a poll says that found nothing in time
    bool nullInputTask = false, nullOutputTask = false, noOutputFrame = false;

    // Simple mode: answers of decode_get_frame in this order, then "nothing yet".
    void answer(const FakeAnswer& next);
    void answer(const FakePicture& picture) { answer(FakeAnswer{MPP_OK, picture}); }
    std::size_t answersLeft();

    std::map<std::string, RK_U32> environment();
    // The first command of that name gave this number.
    RK_U32 numberOf(const std::string& command);
    MppBufferGroup extBufferGroup();
    std::pair<std::size_t, int> groupLimit();           // bytes, buffers
    std::vector<std::size_t> bufferSizes();             // asked for, in order
    std::vector<std::vector<unsigned char>> packets();  // as they were handed over
    RK_U32 lastPacketSize();                            // mpp_packet_get_size of the last one
    int mostPollTimeout();  // the longest that a poll was to wait; -1 without limit

  private:
    friend struct played::FakeCalls;
    struct Failure {
        MPP_RET result;
        int nth;
    };
    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, Failure> failures_;
    std::map<std::string, int> calls_;
    std::vector<std::string> journal_;
    std::map<std::string, int> alive_;
    std::map<std::string, RK_U32> environment_, numbers_;
    std::deque<FakeAnswer> answers_;
    std::vector<std::vector<unsigned char>> packets_;
    std::vector<std::size_t> bufferSizes_;
    std::pair<std::size_t, int> groupLimit_{0, 0};
    MppBufferGroup extBufferGroup_ = nullptr;
    RK_U32 lastPacketSize_ = 0;
    int mostPollTimeout_ = 0;
    bool hold_ = false, park_ = false;
    std::vector<unsigned char> held_, letGo_;
};
