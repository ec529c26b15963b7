#include "board/console/bulletin.h"

#include <algorithm>

namespace board::console {

namespace {

constexpr std::size_t mostLines = 5000;
constexpr std::uint64_t linesAnEvent = 500;

std::string event(const std::string& name, const std::string& data) {
    return "event: " + name + "\ndata: " + data + "\n\n";
}

}  // namespace

Bulletin::Presence::Presence(Bulletin& bulletin) : bulletin_(bulletin) {
    const std::lock_guard<std::mutex> hold(bulletin_.lock_);
    ++bulletin_.readers_;
}

Bulletin::Presence::~Presence() {
    const std::lock_guard<std::mutex> hold(bulletin_.lock_);
    --bulletin_.readers_;
}

void Bulletin::addLine(const std::string& members) {
    const std::lock_guard<std::mutex> hold(lock_);
    lines_.push_back("{\"n\": " + std::to_string(nextLine_++) + ", " + members + "}");
    if (lines_.size() > mostLines)
        lines_.pop_front();
    changed_.notify_all();
}

void Bulletin::setState(std::string json) {
    const std::lock_guard<std::mutex> hold(lock_);
    state_ = std::move(json);
    ++stateNumber_;
    changed_.notify_all();
}

void Bulletin::setHistory(std::string json) {
    const std::lock_guard<std::mutex> hold(lock_);
    history_ = std::move(json);
}

bool Bulletin::hasReaders() const {
    const std::lock_guard<std::mutex> hold(lock_);
    return readers_ > 0;
}

std::string Bulletin::linesFor(Reader& reader) {
    reader.line = std::max(reader.line, nextLine_ - lines_.size());
    std::string text;
    while (reader.line < nextLine_) {
        std::string list;
        for (std::uint64_t i = 0; i < linesAnEvent && reader.line < nextLine_; ++i, ++reader.line) {
            const std::size_t place = lines_.size() - std::size_t(nextLine_ - reader.line);
            list += (list.empty() ? "" : ", ") + lines_[place];
        }
        text += event("log", "{\"lines\": [" + list + "]}");
    }
    return text;
}

std::string Bulletin::news(Reader& reader, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait_for(hold, patience, [&] {
        return !reader.greeted || reader.line < nextLine_ || reader.state != stateNumber_;
    });
    std::string text;
    if (!reader.greeted && !history_.empty())
        text += event("history", history_);
    reader.greeted = true;
    text += linesFor(reader);
    if (reader.state != stateNumber_) {
        text += event("state", state_);
        reader.state = stateNumber_;
    }
    return text;
}

}  // namespace board::console
