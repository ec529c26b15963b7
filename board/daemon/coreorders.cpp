#include "board/daemon/coreorders.h"

#include "board/daemon/ioctlnames.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>

namespace board {

namespace {

constexpr int highestErrno = 4095;
constexpr std::int64_t tenYears_ms = 315576000000;
constexpr std::size_t longestThread = 15;  // what the kernel keeps of a thread's name
constexpr char ioctlPrefix[] = "ioctl:0x";

// As a park's entry names a call: libc names as they are, ioctls by number.
std::string readCall(const JsonPlace& place) {
    std::string name = place.text(sizeof(wire::ParkEntry::call) - 1);
    if (name.empty())
        place.fail("must name a call");
    const std::uint32_t request = ioctlNumber(name);
    if (request != 0) {
        char text[sizeof ioctlPrefix + 8];
        std::snprintf(text, sizeof text, "%s%04x", ioctlPrefix, request);
        return text;
    }
    if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789") != std::string::npos)
        place.fail("\"" + name + "\" is neither a libc call nor a known ioctl");
    return name;
}

std::string callName(const std::string& call) {
    unsigned request = 0;
    if (std::sscanf(call.c_str(), "ioctl:0x%8x", &request) != 1)
        return call;
    const std::string name = ioctlName(request);
    return name.empty() ? call : name;
}

JsonFields fail(JsonObject& order, Faults& faults) {
    const std::string name = order.get("ioctl").text(64);
    if (ioctlNumber(name) == 0)
        order.get("ioctl").fail("\"" + name + "\" is no known ioctl");
    const auto nth = unsigned(order.get("nth").integer(1, INT32_MAX));
    const int error = readErrno(order.get("errno"));
    unsigned count = 1;
    order.with("count", [&](const JsonPlace& p) { count = unsigned(p.integer(0, INT32_MAX)); });
    if (!faults.add(name, nth, error, count))
        throw std::runtime_error("the fault was not taken");
    return {};
}

JsonFields park(JsonObject& order, CorePage& page) {
    const std::string call = readCall(order.get("call"));
    std::string thread;
    order.with("thread", [&](const JsonPlace& p) { thread = p.text(longestThread); });
    const auto index = page.park(call, thread);
    if (!index)
        throw std::runtime_error("all " + std::to_string(wire::maxParks) +
                                 " parks are in use; lift one with unpark");
    return JsonFields().add("index", *index);
}

JsonFields unpark(JsonObject& order, CorePage& page) {
    const JsonPlace place = order.get("index");
    if (place.value().IsString()) {
        if (place.text(8) != "all")
            place.fail("must be a number or \"all\"");
        for (const CorePage::Park& entry : page.parks())
            page.unpark(entry.index);
        return {};
    }
    if (!page.unpark(unsigned(place.integer(0, wire::maxParks - 1))))
        place.fail("there is no such park");
    return {};
}

JsonFields parks(const CorePage& page) {
    std::string list;
    for (const CorePage::Park& entry : page.parks()) {
        JsonFields fields;
        fields.add("index", entry.index).add("call", callName(entry.call));
        fields.add("thread", entry.thread).add("held", entry.held);
        list += (list.empty() ? "" : ", ") + fields.object();
    }
    return JsonFields().addRaw("parks", "[" + list + "]");
}

JsonFields clockStep(JsonObject& order, CorePage& page) {
    const std::int64_t step_ms = order.get("ms").integer(-tenYears_ms, tenYears_ms);
    auto& sum_ns = page.page().realtimeStep_ns;
    const std::int64_t sum_ms = sum_ns.load() / 1000000 + step_ms;
    if (sum_ms > tenYears_ms || sum_ms < -tenYears_ms)
        order.get("ms").fail("the steps add up to more than ten years");
    sum_ns.fetch_add(step_ms * 1000000);
    return JsonFields().addRaw("stepped_ms", std::to_string(sum_ms));
}

}  // namespace

int readErrno(const JsonPlace& place) {
    if (!place.value().IsString())
        return int(place.integer(1, highestErrno));
    const std::string name = place.text(32);
    for (int error = 1; error < 256; ++error) {
        const char* known = ::strerrorname_np(error);
        if (known != nullptr && name == known)
            return error;
    }
    place.fail("\"" + name + "\" is no errno");
}

void addCoreOrders(Orders& orders, CoreBoard& board, Faults& faults) {
    CorePage& page = board.page();
    orders.addImmediate("fail", [&](JsonObject& order) { return fail(order, faults); });
    orders.addImmediate("faults-clear", [&](JsonObject&) {
        faults.clear();
        return JsonFields();
    });
    orders.addImmediate("park", [&](JsonObject& order) { return park(order, page); });
    orders.addImmediate("unpark", [&](JsonObject& order) { return unpark(order, page); });
    orders.addImmediate("parks", [&](JsonObject&) { return parks(page); });
    orders.addImmediate("clock-step", [&](JsonObject& order) { return clockStep(order, page); });
}

}  // namespace board
