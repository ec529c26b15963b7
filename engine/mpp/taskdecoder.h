// Task mode: MJPEG pictures through an input and an output port.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "engine/mpp/decoder.h"
#include "engine/mpp/jpeg.h"
#include "engine/mpp/task.h"

namespace mpp {

class TaskDecoder : public Decoder {
  public:
    explicit TaskDecoder(Channel& channel);

    MPP_RET poll(MppPortType port, RK_S64 timeout) override;
    MPP_RET dequeue(MppPortType port, MppTask& task) override;
    MPP_RET enqueue(MppPortType port, MppTask task) override;
    MPP_RET reset() override;
    RK_S32 backlog() const override;
    bool busy() const override;
    RK_U32 waitsFor() const override;

  private:
    using Queue = std::deque<Task*>;

    void work() override;
    void decode(Job& job);
    // Between the locked parts of work(): the next task's job, and where it goes.
    Job finish(Task* task, Job job, unsigned epoch);
    Queue& forProgram(MppPortType port) { return port == MPP_PORT_INPUT ? empty_ : finished_; }
    static void present(Task& task);
    static Job takeJob(const Task& task);

    JpegDecoder jpeg_;  // of work() only
    std::vector<std::unique_ptr<Task>> tasks_;
    // The channel's lock guards all below and the tasks that the program does not hold.
    Queue empty_;     // input port: for the program to fill
    Queue queued_;    // input port: for the decoder
    Queue unused_;    // output port: for the decoder
    Queue finished_;  // output port: for the program
    bool busy_ = false;
};

}  // namespace mpp
