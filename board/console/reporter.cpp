#include "board/console/reporter.h"

#include "board/console/soundfigures.h"
#include "board/daemon/jsonfields.h"

#include <poll.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>

namespace board::console {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto look = std::chrono::milliseconds(50);
constexpr auto statePeriod = std::chrono::milliseconds(200);
constexpr auto idlePeriod = std::chrono::seconds(1);
constexpr std::size_t historySeconds = 60;

std::uint64_t unixTime_ms() {
    return std::uint64_t(std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count());
}

void parse(const std::string& answer, rapidjson::Document& document) {
    document.Parse<rapidjson::kParseIterativeFlag>(answer.c_str(), answer.size());
    if (document.HasParseError() || !document.IsObject())
        document.SetObject();
}

// Of the answer to "inputs".
std::string inputList(const std::string& answer) {
    rapidjson::Document document;
    parse(answer, document);
    if (!document.HasMember("inputs") || !document["inputs"].IsArray())
        return "[]";
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document["inputs"].Accept(writer);
    return buffer.GetString();
}

std::uint64_t countOf(const rapidjson::Document& figures, const char* device, const char* name) {
    const auto found = figures.FindMember(device);
    if (found == figures.MemberEnd() || !found->value.IsObject() || !found->value.HasMember(name) ||
        !found->value[name].IsUint64())
        return 0;
    return found->value[name].GetUint64();
}

// Whether a program uses the board.
bool hasClients(const std::string& state) {
    rapidjson::Document document;
    parse(state, document);
    return document.HasMember("clients") && document["clients"].IsInt() &&
           document["clients"].GetInt() > 0;
}

std::string tenths(std::optional<double> number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", number.value_or(0));
    return number ? text : "null";
}

void keepLast(std::deque<std::string>& list, std::string entry) {
    list.push_back(std::move(entry));
    if (list.size() > historySeconds)
        list.pop_front();
}

std::string joined(const std::deque<std::string>& list) {
    std::string text;
    for (const std::string& entry : list)
        text += (text.empty() ? "" : ", ") + entry;
    return "[" + text + "]";
}

}  // namespace

Reporter::Reporter(const ReporterSources& sources, Bulletin& bulletin)
    : sources_(sources),
      bulletin_(bulletin),
      out_(sources.log),
      err_(sources.err),
      stopEvent_(::eventfd(0, EFD_CLOEXEC)),
      thread_([this] { run(); }) {}

Reporter::~Reporter() {
    eventfd_write(stopEvent_, 1);
    thread_.join();
    ::close(stopEvent_);
}

void Reporter::run() {
    Clock::time_point lastState{}, lastSecond = Clock::now();
    pollfd stop{stopEvent_, POLLIN, 0};
    bulletin_.setHistory("{\"age\": [], \"onTheWay_ms\": []}");
    while (::poll(&stop, 1, int(look.count())) <= 0) {
        followLog(out_, "out");
        followLog(err_, "err");
        const Clock::time_point now = Clock::now();
        const bool watched = bulletin_.hasReaders();
        if (now - lastState >= (watched ? Clock::duration(statePeriod) : idlePeriod)) {
            // Without drift, but not in a hurry after a standstill.
            lastState = now - lastState < 2 * statePeriod ? lastState + statePeriod : now;
            reportState();
        }
        if (now - lastSecond >= std::chrono::seconds(1)) {
            lastSecond = now;
            rollHistory();
        }
    }
}

void Reporter::followLog(LogTail& tail, const char* stream) {
    for (const std::string& line : tail.read()) {
        supervisor_.take(line, unixTime_ms());
        JsonFields members;
        members.add("stream", stream).add("text", toUtf8(line));
        if (const auto entry = sources_.knownLines.find(line)) {
            members.add("kind", sources_.knownLines.entries()[*entry].kind);
            members.add("entry", std::uint64_t(*entry));
        } else {
            members.add("kind", "").addRaw("entry", "null");
        }
        const std::string object = members.object();
        bulletin_.addLine(object.substr(1, object.size() - 2));
    }
}

void Reporter::reportState() {
    const OrderClient& orders = sources_.orders;
    const std::string state = orders.askFor("state").value_or("null");
    const std::string figures = orders.askFor("figures").value_or("null");
    rapidjson::Document counted;
    parse(figures, counted);
    lostNow_ = countOf(counted, "camera", "lost");
    const SoundOnTheWay sound = soundOnTheWay(counted);
    lastOnTheWay_ = tenths(sound.onTheWay_ms);
    JsonFields levels;
    levels.addRaw("onTheWay_ms", lastOnTheWay_).addRaw("queued_ms", tenths(sound.queued_ms));
    const std::string levelsObject = levels.object();

    JsonFields all;
    all.add("time_ms", unixTime_ms()).addRaw("state", state).addRaw("figures", figures);
    all.addRaw("ptz", orders.askFor("ptz").value_or("null"));
    all.addRaw("inputs", inputList(orders.askFor("inputs").value_or("")));
    const std::uint64_t lost = lostNow_ >= lostBefore_ ? lostNow_ - lostBefore_ : lostNow_;
    all.addRaw("age", sources_.age.lastSecond(Clock::now()).json(lost));
    all.addRaw("sound", "{" + sources_.soundLevels() + ", " + levelsObject.substr(1));
    all.addRaw("supervisor", supervisor_.json());
    all.add("application", JsonFields().add("running", hasClients(state)));
    bulletin_.setState(all.object());
}

void Reporter::rollHistory() {
    const std::uint64_t lost = lostNow_ >= lostBefore_ ? lostNow_ - lostBefore_ : lostNow_;
    lostBefore_ = lostNow_;
    keepLast(ages_, sources_.age.lastSecond(Clock::now()).json(lost));
    keepLast(onTheWay_, lastOnTheWay_);
    bulletin_.setHistory("{\"age\": " + joined(ages_) + ", \"onTheWay_ms\": " + joined(onTheWay_) +
                         "}");
}

}  // namespace board::console
