#include "tests/unit/decode/fakempp.h"

#include "tests/unit/decode/fakemppobjects.h"

#include <algorithm>
#include <chrono>

namespace played {

namespace {

FakeMpp& fake() {
    return FakeMpp::instance();
}

std::chrono::steady_clock::time_point deadlineOf(int milliseconds) {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

const char* nameOf(MpiCmd command) {
    switch (command) {
        case MPP_DEC_SET_PARSER_SPLIT_MODE:
            return "MPP_DEC_SET_PARSER_SPLIT_MODE";
        case MPP_SET_OUTPUT_TIMEOUT:
            return "MPP_SET_OUTPUT_TIMEOUT";
        case MPP_DEC_SET_OUTPUT_FORMAT:
            return "MPP_DEC_SET_OUTPUT_FORMAT";
        case MPP_DEC_QUERY:
            return "MPP_DEC_QUERY";
        case MPP_DEC_SET_EXT_BUF_GROUP:
            return "MPP_DEC_SET_EXT_BUF_GROUP";
        case MPP_DEC_SET_INFO_CHANGE_READY:
            return "MPP_DEC_SET_INFO_CHANGE_READY";
        default:
            return "another command";
    }
}

}  // namespace

std::unique_lock<std::mutex> FakeCalls::locked() {
    return std::unique_lock<std::mutex>(fake().lock_);
}

std::optional<MPP_RET> FakeCalls::note(const std::string& call) {
    FakeMpp& f = fake();
    f.journal_.push_back(call);
    const int count = ++f.calls_[call];
    const auto found = f.failures_.find(call);
    if (found != f.failures_.end() && (found->second.nth == 0 || found->second.nth == count)) {
        return found->second.result;
    }
    return std::nullopt;
}

void FakeCalls::count(const char* kind, int change) {
    fake().alive_[kind] += change;
}

Buffer* FakeCalls::makeBuffer(std::size_t size) {
    auto* buffer = new Buffer;
    buffer->memory.resize(size);
    count("buffer", 1);
    return buffer;
}

void FakeCalls::release(Buffer* buffer) {
    if (buffer != nullptr && --buffer->references == 0) {
        delete buffer;
        count("buffer", -1);
    }
}

void FakeCalls::paint(Frame& frame) {
    if (frame.buffer != nullptr) {
        std::fill(frame.buffer->memory.begin(), frame.buffer->memory.end(), frame.picture.luma);
    }
}

void FakeCalls::decode(Context& context) {
    Packet& packet = *context.task.packet;
    const std::vector<unsigned char> bytes(packet.pos, packet.pos + packet.length);
    fake().packets_.push_back(bytes);
    fake().lastPacketSize_ = static_cast<RK_U32>(packet.size);
    context.firstByte = bytes.empty() ? 0 : bytes.front();
    FakePicture picture;
    picture.luma = context.firstByte;
    if (fake().decode) {
        picture = fake().decode(bytes);
    }
    Frame& result = picture.withoutBuffer ? context.finished : *context.task.frame;
    result.picture = picture;
    context.task.frame = &result;
    paint(result);
    context.at = fake().hold_ ? Context::At::hardware : Context::At::output;
    if (fake().hold_) {
        fake().held_.push_back(context.firstByte);
    }
    fake().changed_.notify_all();
}

bool FakeCalls::hasTask(Context& context, MppPortType port) {
    if (port == MPP_PORT_INPUT) {
        return !fake().park_ && context.at == Context::At::input;
    }
    std::vector<unsigned char>& free = fake().letGo_;
    const auto found = std::find(free.begin(), free.end(), context.firstByte);
    if (context.at == Context::At::hardware && found != free.end()) {
        free.erase(found);
        context.at = Context::At::output;
    }
    return context.at == Context::At::output;
}

MPP_RET FakeCalls::poll(Context& context, MppPortType port, int timeout) {
    auto lock = locked();
    int& longest = fake().mostPollTimeout_;
    longest = timeout < 0 || longest < 0 ? -1 : std::max(longest, timeout);
    if (const auto failed = note(port == MPP_PORT_INPUT ? "poll input" : "poll output")) {
        context.at = Context::At::input;  // a task that was under way is lost
        return *failed;
    }
    const auto ready = [&] { return hasTask(context, port); };
    const bool came =
        fake().changed_.wait_until(lock, deadlineOf(timeout < 0 ? 3600000 : timeout), ready);
    return came ? MPP_OK : fake().pollTimeout;
}

MPP_RET FakeCalls::dequeue(Context& context, MppPortType port, MppTask* task) {
    const auto lock = locked();
    const bool input = port == MPP_PORT_INPUT;
    if (const auto failed = note(input ? "dequeue input" : "dequeue output")) {
        context.at = Context::At::input;
        return *failed;
    }
    const bool none = input ? fake().nullInputTask : fake().nullOutputTask;
    if (none) {
        context.at = Context::At::input;
    }
    *task = none ? nullptr : &context.task;
    return MPP_OK;
}

MPP_RET FakeCalls::enqueue(Context& context, MppPortType port) {
    const auto lock = locked();
    const bool input = port == MPP_PORT_INPUT;
    if (const auto failed = note(input ? "enqueue input" : "enqueue output")) {
        context.at = Context::At::input;
        return *failed;
    }
    if (input) {
        decode(context);
    } else {
        context.at = Context::At::input;
    }
    return MPP_OK;
}

MPP_RET FakeCalls::put(const Packet& packet) {
    const auto lock = locked();
    if (const auto failed = note("decode_put_packet")) {
        return *failed;
    }
    fake().packets_.emplace_back(packet.pos, packet.pos + packet.length);
    fake().lastPacketSize_ = static_cast<RK_U32>(packet.size);
    fake().changed_.notify_all();
    return MPP_OK;
}

MPP_RET FakeCalls::get(MppFrame* frame) {
    const auto lock = locked();
    if (const auto failed = note("decode_get_frame")) {
        return *failed;
    }
    if (fake().answers_.empty()) {
        return MPP_OK;
    }
    const FakeAnswer next = fake().answers_.front();
    fake().answers_.pop_front();
    if (next.picture) {
        auto* made = new Frame;
        made->picture = *next.picture;
        count("frame", 1);
        if (!made->picture.withoutBuffer && !made->picture.infoChange) {
            made->buffer = makeBuffer(made->picture.bufferSize);
            paint(*made);
        }
        *frame = made;
    }
    return next.result;
}

MPP_RET FakeCalls::control(MpiCmd command, MppParam parameter) {
    const auto lock = locked();
    if (const auto failed = note(nameOf(command))) {
        return *failed;
    }
    if (command == MPP_DEC_QUERY) {
        auto* query = static_cast<MppDecQueryCfg*>(parameter);
        fake().numbers_[nameOf(command)] = query->query_flag;
        query->dec_in_pkt_cnt = 7;
        query->dec_out_frm_cnt = 6;
        query->dec_hw_run_cnt = 5;
    } else if (command == MPP_DEC_SET_EXT_BUF_GROUP) {
        fake().extBufferGroup_ = parameter;
    } else if (command == MPP_SET_OUTPUT_TIMEOUT) {
        fake().numbers_[nameOf(command)] = static_cast<RK_U32>(*static_cast<RK_S64*>(parameter));
    } else if (parameter != nullptr) {
        fake().numbers_[nameOf(command)] = *static_cast<RK_U32*>(parameter);
    }
    return MPP_OK;
}

MppFrame FakeCalls::outputOf(const Task& task) {
    const auto lock = locked();
    note("mpp_task_meta_get_frame");
    return fake().noOutputFrame ? nullptr : task.frame;
}

void FakeCalls::setEnvironment(const char* name, RK_U32 value) {
    const auto lock = locked();
    fake().environment_[name] = value;
}

void FakeCalls::setLimit(std::size_t size, int buffers) {
    fake().groupLimit_ = {size, buffers};
}

void FakeCalls::noteBufferSize(std::size_t size) {
    fake().bufferSizes_.push_back(size);
}

}  // namespace played

FakeMpp& FakeMpp::instance() {
    static FakeMpp mpp;
    return mpp;
}

void FakeMpp::reset() {
    const std::lock_guard<std::mutex> lock(lock_);
    failures_.clear();
    calls_.clear();
    journal_.clear();
    alive_.clear();
    environment_.clear();
    numbers_.clear();
    answers_.clear();
    packets_.clear();
    bufferSizes_.clear();
    held_.clear();
    letGo_.clear();
    decode = nullptr;
    pollTimeout = MPP_ERR_TIMEOUT;
    nullInputTask = nullOutputTask = noOutputFrame = hold_ = park_ = false;
    groupLimit_ = {0, 0};
    extBufferGroup_ = nullptr;
    lastPacketSize_ = 0;
    mostPollTimeout_ = 0;
}

void FakeMpp::fail(const std::string& call, MPP_RET result, int nth) {
    const std::lock_guard<std::mutex> lock(lock_);
    failures_[call] = {result, nth};
}

int FakeMpp::callsOf(const std::string& call) {
    const std::lock_guard<std::mutex> lock(lock_);
    return calls_[call];
}

std::vector<std::string> FakeMpp::journal() {
    const std::lock_guard<std::mutex> lock(lock_);
    return journal_;
}

std::string FakeMpp::alive() {
    const std::lock_guard<std::mutex> lock(lock_);
    std::string text;
    for (const auto& [kind, count] : alive_) {
        if (count != 0) {
            text += std::to_string(count) + " " + kind + " ";
        }
    }
    return text;
}

void FakeMpp::holdOutputs(bool hold) {
    const std::lock_guard<std::mutex> lock(lock_);
    hold_ = hold;
}

void FakeMpp::letGo(unsigned char firstByte) {
    const std::lock_guard<std::mutex> lock(lock_);
    letGo_.push_back(firstByte);
    changed_.notify_all();
}

bool FakeMpp::waitForHeld(std::size_t count) {
    std::unique_lock<std::mutex> lock(lock_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return held_.size() >= count; });
}

void FakeMpp::parkInput(bool park) {
    const std::lock_guard<std::mutex> lock(lock_);
    park_ = park;
    changed_.notify_all();
}

void FakeMpp::answer(const FakeAnswer& next) {
    const std::lock_guard<std::mutex> lock(lock_);
    answers_.push_back(next);
}

std::size_t FakeMpp::answersLeft() {
    const std::lock_guard<std::mutex> lock(lock_);
    return answers_.size();
}

std::map<std::string, RK_U32> FakeMpp::environment() {
    const std::lock_guard<std::mutex> lock(lock_);
    return environment_;
}

RK_U32 FakeMpp::numberOf(const std::string& command) {
    const std::lock_guard<std::mutex> lock(lock_);
    return numbers_[command];
}

MppBufferGroup FakeMpp::extBufferGroup() {
    const std::lock_guard<std::mutex> lock(lock_);
    return extBufferGroup_;
}

std::pair<std::size_t, int> FakeMpp::groupLimit() {
    const std::lock_guard<std::mutex> lock(lock_);
    return groupLimit_;
}

std::vector<std::size_t> FakeMpp::bufferSizes() {
    const std::lock_guard<std::mutex> lock(lock_);
    return bufferSizes_;
}

std::vector<std::vector<unsigned char>> FakeMpp::packets() {
    const std::lock_guard<std::mutex> lock(lock_);
    return packets_;
}

RK_U32 FakeMpp::lastPacketSize() {
    const std::lock_guard<std::mutex> lock(lock_);
    return lastPacketSize_;
}

int FakeMpp::mostPollTimeout() {
    const std::lock_guard<std::mutex> lock(lock_);
    return mostPollTimeout_;
}
