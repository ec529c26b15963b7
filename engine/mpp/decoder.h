// What decodes behind a context. Calls that a coding has no use for are refused with MPP_NOK.
#pragma once

#include <rockchip/rk_mpi.h>

#include <thread>

#include "engine/mpp/channel.h"
#include "engine/mpp/frame.h"
#include "engine/mpp/packet.h"

namespace mpp {

class Decoder {
  public:
    explicit Decoder(Channel& channel) : channel_(channel) {}
    // The channel is ending and nobody waits in it any more.
    virtual ~Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // Starts the decoder's thread; false when it could not prepare(). Throws std::system_error.
    bool start();
    // After the channel was set to end.
    void join();

    virtual MPP_RET put(const Packet&) { return MPP_NOK; }
    // The frame becomes the caller's.
    virtual MPP_RET get(Frame*&) { return MPP_NOK; }
    virtual MPP_RET poll(MppPortType, RK_S64 /*timeout*/) { return MPP_NOK; }
    virtual MPP_RET dequeue(MppPortType, MppTask&) { return MPP_NOK; }
    virtual MPP_RET enqueue(MppPortType, MppTask) { return MPP_NOK; }
    virtual MPP_RET reset() = 0;

    // With the channel locked: packets that wait, and the bits of MppDecQueryCfg::rt_wait.
    virtual RK_S32 backlog() const = 0;
    virtual bool busy() const = 0;
    virtual RK_U32 waitsFor() const = 0;

  protected:
    // On the decoder's thread, before work(): threads that this starts are like it.
    virtual bool prepare() { return true; }
    // The decoder's thread; returns once the channel is ending.
    virtual void work() = 0;

    Channel& channel_;

  private:
    void run();

    enum class State { starting, working, failed };
    State state_ = State::starting;  // guarded by the channel's lock
    std::thread thread_;
};

}  // namespace mpp
