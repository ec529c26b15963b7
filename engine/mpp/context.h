// What stands behind an MppCtx.
#pragma once

#include <rockchip/rk_mpi.h>

#include <memory>
#include <mutex>

#include "engine/mpp/channel.h"
#include "engine/mpp/decoder.h"
#include "engine/mpp/handle.h"

namespace mpp {

class Context : public Handle {
  public:
    static constexpr Kind kindOf = Kind::context;
    Context();
    // Ends the decoder's thread. No call may be under way but those that wait.
    ~Context();

    MppApi* api() { return &api_; }
    MPP_RET init(MppCtxType type, MppCodingType coding);
    MPP_RET control(MpiCmd command, MppParam parameter);
    // Null before init().
    Decoder* decoder();

  private:
    MPP_RET query(MppDecQueryCfg& answer);
    MPP_RET setGroup(MppBufferGroup group);
    MPP_RET setTime(MpiCmd command, MppParam parameter);
    MPP_RET answerChange();
    MPP_RET tellBacklog(RK_S32* count);

    MppApi api_;
    std::mutex initMutex_;
    Channel channel_;
    std::unique_ptr<Decoder> decoder_;  // set once, under the channel's lock
};

bool supports(MppCtxType type, MppCodingType coding);

}  // namespace mpp
