#include "engine/mpp/taskdecoder.h"

#include <utility>

namespace mpp {
namespace {

constexpr int tasksOfAPort = 4;

Task* pop(std::deque<Task*>& queue) {
    Task* task = queue.front();
    queue.pop_front();
    return task;
}

bool isPort(MppPortType port) {
    return port == MPP_PORT_INPUT || port == MPP_PORT_OUTPUT;
}

}  // namespace

TaskDecoder::TaskDecoder(Channel& channel) : Decoder(channel) {
    for (int i = 0; i < tasksOfAPort; ++i) {
        tasks_.push_back(std::make_unique<Task>(this, MPP_PORT_INPUT));
        empty_.push_back(tasks_.back().get());
        tasks_.push_back(std::make_unique<Task>(this, MPP_PORT_OUTPUT));
        unused_.push_back(tasks_.back().get());
    }
}

MPP_RET TaskDecoder::poll(MppPortType port, RK_S64 timeout) {
    if (!isPort(port)) {
        return MPP_ERR_VALUE;
    }
    const Queue& queue = forProgram(port);
    std::unique_lock<std::mutex> lock(channel_.doorbell->mutex);
    return channel_.wait(lock, timeout, [&queue] { return !queue.empty(); });
}

// Sets what the program reads of a finished task. By the program's own thread: the decoder's never
// touches the program's frame.
void TaskDecoder::present(Task& task) {
    const bool good = task.job.result.errinfo == 0;
    Frame& frame = good ? *task.job.frame.get() : *task.errorFrame.get();
    frame.info = task.job.result;
    task.meta->clear();
    task.meta->set(KEY_OUTPUT_FRAME, FrameValue{handleOf(&frame)});
}

MPP_RET TaskDecoder::dequeue(MppPortType port, MppTask& task) {
    task = nullptr;
    if (!isPort(port)) {
        return MPP_ERR_VALUE;
    }
    const std::lock_guard<std::mutex> lock(channel_.doorbell->mutex);
    Queue& queue = forProgram(port);
    if (queue.empty()) {
        return MPP_NOK;
    }
    Task* taken = pop(queue);
    taken->withProgram = true;
    if (port == MPP_PORT_OUTPUT) {
        present(*taken);
        ++channel_.counts.framesOut;
    } else {
        taken->meta->clear();
    }
    task = handleOf(taken);
    return MPP_OK;
}

Job TaskDecoder::takeJob(const Task& task) {
    Job job;
    if (const auto* value = task.meta->find<PacketValue>(KEY_INPUT_PACKET)) {
        job.packet = Ref<Packet>(as<Packet>(value->handle));
    }
    if (const auto* value = task.meta->find<FrameValue>(KEY_OUTPUT_FRAME)) {
        job.frame = Ref<Frame>(as<Frame>(value->handle));
    }
    if (job.packet) {
        job.packetBuffer = job.packet->buffer;
        job.bytes = job.packet->unread();
        job.result.pts = job.packet->pts;
        job.result.dts = job.packet->dts;
        job.result.eos = (job.packet->flag & Packet::flagEos) != 0 ? 1 : 0;
    }
    if (job.frame) {
        job.buffer = job.frame->buffer;
    }
    return job;
}

MPP_RET TaskDecoder::enqueue(MppPortType port, MppTask task) {
    auto* object = as<Task>(task);
    if (object == nullptr) {
        return refusal(task);
    }
    if (!isPort(port) || object->owner != this || object->port != port) {
        return MPP_ERR_VALUE;
    }
    Job released;  // after the lock: letting go of a buffer may ring the doorbell
    const std::lock_guard<std::mutex> lock(channel_.doorbell->mutex);
    if (!object->withProgram) {
        return MPP_NOK;
    }
    object->withProgram = false;
    if (port == MPP_PORT_INPUT) {
        object->job = takeJob(*object);
        channel_.countPacket(object->job.bytes.size);
        queued_.push_back(object);
    } else {
        released = std::exchange(object->job, Job{});
        unused_.push_back(object);
    }
    channel_.doorbell->bell.notify_all();
    return MPP_OK;
}

void TaskDecoder::decode(Job& job) {
    if (!job.packet || !job.frame) {
        job.result.errinfo = MPP_FRAME_ERR_UNKNOW;
        return;
    }
    job.result.errinfo = jpeg_.decode(job.bytes, job.buffer.get(), job.result);
}

// With the channel locked. Gives back what must be released without the lock.
Job TaskDecoder::finish(Task* task, Job job, unsigned epoch) {
    busy_ = false;
    empty_.push_back(task);
    if (epoch == channel_.epoch) {
        Task* out = pop(unused_);
        out->job = std::exchange(job, Job{});
        finished_.push_back(out);
    }
    channel_.doorbell->bell.notify_all();
    return job;
}

void TaskDecoder::work() {
    const std::shared_ptr<Doorbell> doorbell = channel_.doorbell;
    std::unique_lock<std::mutex> lock(doorbell->mutex);
    const auto hasWork = [this] { return !queued_.empty() && !unused_.empty(); };
    for (;;) {
        doorbell->bell.wait(lock, [&] { return channel_.ending || hasWork(); });
        if (channel_.ending) {
            return;
        }
        Task* task = pop(queued_);
        Job job = std::exchange(task->job, Job{});
        const unsigned epoch = channel_.epoch;
        busy_ = true;
        ++channel_.counts.worked;
        lock.unlock();
        decode(job);
        lock.lock();
        Job released = finish(task, std::move(job), epoch);
        lock.unlock();
        released = Job{};
        lock.lock();
    }
}

MPP_RET TaskDecoder::reset() {
    std::vector<Job> released;
    std::unique_lock<std::mutex> lock(channel_.doorbell->mutex);
    ++channel_.epoch;
    const auto drop = [&released](Queue& from, Queue& to) {
        while (!from.empty()) {
            Task* task = pop(from);
            released.push_back(std::exchange(task->job, Job{}));
            to.push_back(task);
        }
    };
    drop(queued_, empty_);
    drop(finished_, unused_);
    channel_.doorbell->bell.notify_all();
    channel_.doorbell->bell.wait(lock, [this] { return !busy_; });
    lock.unlock();
    return MPP_OK;
}

RK_S32 TaskDecoder::backlog() const {
    return static_cast<RK_S32>(queued_.size());
}

bool TaskDecoder::busy() const {
    return busy_ || !queued_.empty();
}

RK_U32 TaskDecoder::waitsFor() const {
    return busy_ ? 0U : queued_.empty() ? 1U : 2U;
}

}  // namespace mpp
