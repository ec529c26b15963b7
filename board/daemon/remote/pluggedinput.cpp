#include "board/daemon/remote/pluggedinput.h"

#include "board/daemon/remote/inputhandle.h"
#include "board/daemon/remote/keytable.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace board {

namespace {

constexpr unsigned inputMajor = 13;
constexpr unsigned firstMinor = 64;
constexpr std::int64_t millisecond_ns = 1000000;
constexpr std::size_t mostWritesKept = 4096;

bool contains(const std::vector<std::uint16_t>& codes, std::uint16_t code) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

}  // namespace

PluggedInput::PluggedInput(Board& board, const InputDescription& description,
                           std::shared_ptr<InputRecord> record, unsigned number)
    : repeatDelay_ms(description.repeatDelay_ms),
      repeatPeriod_ms(description.repeatPeriod_ms),
      board_(board),
      description_(description),
      record_(std::move(record)),
      number_(number) {}

PluggedInput::~PluggedInput() {
    stopRepeat();
}

std::string PluggedInput::path() const {
    return "/dev/input/event" + std::to_string(number_);
}

std::unique_ptr<Handle> PluggedInput::open(std::uint32_t /*fileFlags*/, std::uint32_t /*pid*/,
                                           int* error) {
    if (gone_) {
        *error = ENODEV;
        return nullptr;
    }
    try {
        auto handle = std::make_unique<InputHandle>(shared_from_this());
        handles_.push_back(handle.get());
        return handle;
    } catch (const std::system_error& failure) {
        *error = failure.code().value();
        return nullptr;
    }
}

void PluggedInput::plug() {
    board_.addNode(path(), inputMajor, firstMinor + number_, *this);
}

void PluggedInput::unplug() {
    if (gone_)
        return;
    takeWrites();
    gone_ = true;
    board_.removeNode(path());
    stopRepeat();
    keysDown_.clear();
    grabbedBy_ = nullptr;
    for (InputHandle* handle : handles_) {
        board_.setHandleState(handle->slot, wire::handleGone);
        handle->hangUp();
    }
}

bool PluggedInput::press(std::uint16_t key) {
    if (!contains(description_.keys, key) || !keysDown_.insert(key).second)
        return false;
    sendKey(key, 1);
    startRepeat(key);
    return true;
}

bool PluggedInput::release(std::uint16_t key) {
    if (keysDown_.erase(key) == 0)
        return false;
    stopRepeat();  // as in the kernel: whichever key goes up, nothing repeats any more
    sendKey(key, 0);
    return true;
}

void PluggedInput::sendKey(std::uint16_t key, std::int32_t value) {
    if (description_.scanCodes)
        send(EV_MSC, MSC_SCAN, scanValue(key));
    send(EV_KEY, key, value);
    send(EV_SYN, SYN_REPORT, 0);
}

void PluggedInput::send(std::uint16_t type, std::uint16_t code, std::int32_t value) {
    for (InputHandle* handle : handles_)
        if (grabbedBy_ == nullptr || grabbedBy_ == handle)
            handle->deliver(type, code, value);
}

void PluggedInput::startRepeat(std::uint16_t key) {
    stopRepeat();
    repeated_ = key;
    if (repeats())
        repeatAt(board_.clock().now_ns() + repeatDelay_ms * millisecond_ns);
}

void PluggedInput::stopRepeat() {
    if (repeatTimer_ != 0)
        board_.loop().cancel(repeatTimer_);
    repeatTimer_ = 0;
}

void PluggedInput::repeatAt(std::int64_t board_ns) {
    repeatTimer_ = board_.loop().at(board_.clock().toMachine(board_ns), [this, board_ns] {
        repeatTimer_ = 0;
        send(EV_KEY, repeated_, 2);
        send(EV_SYN, SYN_REPORT, 1);
        if (repeatPeriod_ms > 0)
            repeatAt(board_ns + repeatPeriod_ms * millisecond_ns);
    });
}

int PluggedInput::grab(InputHandle& handle, bool wanted) {
    if (wanted && grabbedBy_ != nullptr)
        return -EBUSY;
    if (!wanted && grabbedBy_ != &handle)
        return -EINVAL;
    grabbedBy_ = wanted ? &handle : nullptr;
    return 0;
}

void PluggedInput::takeWrites() {
    for (InputHandle* handle : handles_)
        handle->takeWrites();
}

// Lights follow; other events that a client writes are kept in the record and change nothing.
void PluggedInput::wrote(const input_event& event) {
    record_->written.push_back({board_.clock().now_ns(), event.type, event.code, event.value});
    ++record_->writtenCount;
    if (record_->written.size() > mostWritesKept)
        record_->written.pop_front();
    if (event.type == EV_SYN)
        send(EV_SYN, event.code, event.value);
    if (event.type != EV_LED || !contains(description_.leds, event.code))
        return;
    const bool lit = ledsLit_.count(event.code) != 0;
    if (lit == (event.value != 0))
        return;
    if (lit)
        ledsLit_.erase(event.code);
    else
        ledsLit_.insert(event.code);
    send(EV_LED, event.code, event.value);
}

void PluggedInput::closed(InputHandle& handle) {
    handles_.erase(std::remove(handles_.begin(), handles_.end(), &handle), handles_.end());
    if (grabbedBy_ == &handle)
        grabbedBy_ = nullptr;
}

}  // namespace board
