#include "board/daemon/remote/inputs.h"

#include "board/daemon/remote/keytable.h"

#include <algorithm>
#include <stdexcept>

namespace board {

namespace {

constexpr unsigned mostNumbers = 32;

std::uint16_t readKey(const std::string& text) {
    const auto key = keyNamed(text);
    if (!key)
        throw std::runtime_error("\"" + text + "\" is no key; W, KEY_W or 17, for example");
    return *key;
}

}  // namespace

Inputs::Inputs(Board& board, const std::vector<InputDescription>& described) : board_(board) {
    for (const InputDescription& description : described) {
        add(description);
        if (description.plugged)
            plug(description.name);
    }
}

Inputs::~Inputs() {
    for (const auto& entry : entries_)
        if (entry->plugged)
            entry->plugged->unplug();
}

bool Inputs::has(const std::string& name) const {
    return std::any_of(entries_.begin(), entries_.end(),
                       [&](const auto& entry) { return entry->description.name == name; });
}

void Inputs::add(const InputDescription& description) {
    auto entry = std::make_unique<Entry>();
    entry->description = description;
    entries_.push_back(std::move(entry));
}

void Inputs::change(const std::string& name, const InputDescription& description) {
    Entry& entry = find(name);
    entry.description = description;
    entry.description.name = name;
}

Inputs::Entry& Inputs::find(const std::string& name) {
    if (entries_.empty())
        throw std::runtime_error("the scenario has no input device");
    if (name.empty())
        return *entries_.front();
    for (const auto& entry : entries_)
        if (entry->description.name == name)
            return *entry;
    throw std::runtime_error("there is no input device \"" + name + "\"");
}

PluggedInput& Inputs::pluggedOf(Entry& entry) const {
    if (!entry.plugged)
        throw std::runtime_error("\"" + entry.description.name + "\" is not plugged in");
    return *entry.plugged;
}

bool Inputs::numberTaken(unsigned number) const {
    return std::any_of(entries_.begin(), entries_.end(), [&](const auto& entry) {
        return entry->plugged && entry->plugged->number() == number;
    });
}

std::string Inputs::plug(const std::string& name) {
    Entry& entry = find(name);
    if (entry.plugged)
        throw std::runtime_error("\"" + name + "\" is plugged in already, at " +
                                 entry.plugged->path());
    unsigned number = entry.description.firstNumber;
    while (number < mostNumbers && numberTaken(number))
        ++number;
    if (number == mostNumbers)
        throw std::runtime_error("no number is left for \"" + name + "\"");
    auto plugged = std::make_shared<PluggedInput>(board_, entry.description, entry.record, number);
    plugged->plug();
    entry.plugged = std::move(plugged);
    return entry.plugged->path();
}

void Inputs::unplug(const std::string& name) {
    Entry& entry = find(name);
    pluggedOf(entry).unplug();
    entry.plugged.reset();
}

std::int64_t Inputs::press(const std::string& name, const std::string& key) {
    PluggedInput& input = pluggedOf(find(name));
    const std::uint16_t code = readKey(key);
    const std::int64_t now = board_.clock().now_ns();
    if (!input.press(code))
        throw std::runtime_error(input.keysDown().count(code) != 0
                                     ? keyName(code) + " is down already"
                                     : "the device has no " + keyName(code));
    return now;
}

std::int64_t Inputs::release(const std::string& name, const std::string& key) {
    PluggedInput& input = pluggedOf(find(name));
    const std::uint16_t code = readKey(key);
    const std::int64_t now = board_.clock().now_ns();
    if (!input.release(code))
        throw std::runtime_error(keyName(code) + " is not down");
    return now;
}

void Inputs::hold(const std::string& name, const std::string& key, std::uint32_t ms,
                  const std::function<void(const std::string& error)>& done) {
    const std::int64_t until = press(name, key) + std::int64_t(ms) * 1000000;
    const std::weak_ptr<PluggedInput> held = find(name).plugged;
    const std::uint16_t code = readKey(key);
    board_.loop().at(board_.clock().toMachine(until), [held, code, done] {
        const auto input = held.lock();
        const bool released = input != nullptr && !input->gone() && input->release(code);
        done(released ? "" : keyName(code) + " was up before its time");
    });
}

std::vector<InputState> Inputs::states() {
    std::vector<InputState> states;
    for (const auto& entry : entries_) {
        InputState state;
        state.name = entry->description.name;
        state.device = entry->description.device;
        if (entry->plugged) {
            entry->plugged->takeWrites();
            state.node = entry->plugged->path();
            for (const std::uint16_t key : entry->plugged->keysDown())
                state.keysDown.push_back(keyName(key));
            state.ledsLit.assign(entry->plugged->ledsLit().begin(),
                                 entry->plugged->ledsLit().end());
        }
        state.writtenCount = entry->record->writtenCount;
        state.written.assign(entry->record->written.begin(), entry->record->written.end());
        states.push_back(std::move(state));
    }
    return states;
}

}  // namespace board
