#include "tests/board/remote/inputbench.h"

#include <poll.h>
#include <sys/socket.h>

#include <chrono>

namespace board::test {

Reader::Reader(FakeBoard& board, std::unique_ptr<Handle> handle)
    : descriptor_(handle->clientDescriptor()), client_(board, std::move(handle)) {}

std::vector<input_event> Reader::read(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::vector<input_event> events;
    while (events.size() < count && std::chrono::steady_clock::now() < deadline) {
        input_event next{};
        pollfd wanted{descriptor_, POLLIN, 0};
        if (poll(&wanted, 1, 100) == 1 &&
            recv(descriptor_, &next, sizeof next, MSG_DONTWAIT) == sizeof next)
            events.push_back(next);
    }
    return events;
}

std::vector<input_event> Reader::readAll() {
    std::vector<input_event> events;
    input_event next{};
    while (recv(descriptor_, &next, sizeof next, MSG_DONTWAIT) == sizeof next)
        events.push_back(next);
    return events;
}

void Reader::write(const std::vector<input_event>& events) {
    const std::size_t bytes = events.size() * sizeof(input_event);
    ASSERT_EQ(send(descriptor_, events.data(), bytes, MSG_NOSIGNAL), ssize_t(bytes));
}

InputBench::InputBench(std::uint32_t speed)
    : board(speed), inputs(std::make_unique<Inputs>(board, std::vector<InputDescription>{})) {}

InputBench::~InputBench() {
    board.onLoop([this] { inputs.reset(); });
}

void InputBench::add(const InputDescription& description) {
    board.onLoop([&] { inputs->add(description); });
}

std::string InputBench::plug(const std::string& name) {
    std::string path;
    board.onLoop([&] { path = inputs->plug(name); });
    return path;
}

void InputBench::unplug(const std::string& name) {
    board.onLoop([&] { inputs->unplug(name); });
}

Reader InputBench::open(const std::string& path) {
    std::unique_ptr<Handle> handle;
    board.onLoop([&] {
        int error = 0;
        handle = board.nodes.at(path).device->open(0, 1, &error);
        if (handle)
            handle->slot = nextSlot++;
    });
    return {board, std::move(handle)};
}

void InputBench::press(const std::string& key, const std::string& name) {
    board.onLoop([&] { inputs->press(name, key); });
}

void InputBench::release(const std::string& key, const std::string& name) {
    board.onLoop([&] { inputs->release(name, key); });
}

void InputBench::type(const std::string& key, const std::string& name) {
    board.onLoop([&] {
        inputs->press(name, key);
        inputs->release(name, key);
    });
}

std::string InputBench::errorOf(const std::function<void(Inputs&)>& work) {
    std::string message;
    board.onLoop([&] {
        try {
            work(*inputs);
        } catch (const std::exception& error) {
            message = error.what();
        }
    });
    return message;
}

InputState InputBench::state(const std::string& name) {
    InputState found;
    board.onLoop([&] {
        for (const InputState& state : inputs->states())
            if (state.name == name)
                found = state;
    });
    return found;
}

InputDescription smallRemote(const std::string& name) {
    InputDescription remote;
    remote.name = name;
    remote.device = "NYFZ USB DONGLE";
    remote.phys = "usb-1/input0";
    remote.vendor = 0x1234;
    remote.product = 0x5678;
    remote.keys = {KEY_W, KEY_A, KEY_S, KEY_D};
    remote.leds = {LED_NUML, LED_CAPSL};
    return remote;
}

input_event event(unsigned type, unsigned code, int value) {
    input_event made{};
    made.type = std::uint16_t(type);
    made.code = std::uint16_t(code);
    made.value = value;
    return made;
}

std::string textOf(const std::vector<input_event>& events) {
    std::string text;
    for (const input_event& event : events)
        text += (text.empty() ? "" : " ") + std::to_string(event.type) + "/" +
                std::to_string(event.code) + "=" + std::to_string(event.value);
    return text;
}

}  // namespace board::test
