#include "board/daemon/daemon.h"

#include "board/daemon/coreorders.h"
#include "board/daemon/deviceorders.h"
#include "board/daemon/inputorders.h"
#include "board/daemon/ptzorders.h"
#include "board/daemon/reportorders.h"
#include "board/daemon/sessionorders.h"
#include "board/daemon/soundorders.h"

#include <utility>

namespace board {

Daemon::Daemon(EventLoop& loop, const std::string& folder, const Scenario& scenario,
               std::function<void()> ready)
    : loop_(loop),
      board_(loop, folder, scenario.speed),
      rig_(board_, scenario),
      viewServer_(loop, folder + "/" + wire::viewSocketName, rig_),
      session_(board_, orders_, scenario) {
    addOrders();
    session_.start([this, ready = std::move(ready)] {
        open();
        ready();
    });
}

void Daemon::open() {
    server_ = std::make_unique<Server>(board_, faults_, [this] { session_.firstClient(); });
    orderServer_ = std::make_unique<OrderServer>(
        loop_, board_.folder() + "/" + wire::orderSocketName, orders_);
}

void Daemon::addOrders() {
    addCoreOrders(orders_, board_, faults_);
    addReportOrders(orders_, board_);
    addDeviceOrders(orders_, rig_);
    addSoundOrders(orders_, rig_);
    addInputOrders(orders_, rig_);
    addPtzOrders(orders_, rig_);
    addSessionOrders(orders_, board_, session_);
    orders_.addImmediate("figures", [this](JsonObject&) { return figures(); });
    orders_.addImmediate("state", [this](JsonObject&) { return state(); });
    orders_.add("quit", [this](JsonObject&, const OrderDone& done) {
        done({});
        loop_.stop();
    });
}

namespace {

void addCard(JsonFields& fields, const std::string& device, const SoundCard* card) {
    fields.add((device + "Plugged").c_str(), card != nullptr && card->plugged());
    fields.add(device.c_str(), card != nullptr ? card->description().name : "");
}

}  // namespace

JsonFields Daemon::figures() {
    JsonFields handles;
    for (const auto& entry : server_->openHandles())
        handles.add(entry.first.c_str(), entry.second);
    JsonFields fields;
    if (rig_.camera() != nullptr)
        fields.add("camera", cameraFigures(*rig_.camera()));
    if (rig_.microphone() != nullptr)
        fields.add("microphone", soundFigures(*rig_.microphone()));
    if (rig_.output() != nullptr)
        fields.add("output", soundFigures(*rig_.output()));
    return fields.add("display", displayFigures(rig_.display())).add("handles", handles);
}

JsonFields Daemon::state() {
    const Scenario& scenario = rig_.scenario();
    const bool cameraPlugged = rig_.camera() != nullptr && rig_.camera()->plugged();
    JsonFields fields;
    fields.add("scenario", scenario.name).add("folder", board_.folder());
    fields.add("speed", scenario.speed).add("cameraPlugged", cameraPlugged);
    fields.add("cameraNode", cameraPlugged ? rig_.camera()->nodePath() : "");
    fields.add("camera", rig_.camera() != nullptr ? rig_.camera()->name() : "");
    addCard(fields, "microphone", rig_.microphone());
    addCard(fields, "output", rig_.output());
    fields.add("displayPlugged", rig_.display().plugged());
    fields.add("display", scenario.hasDisplay ? scenario.display.name : "");
    fields.add("mode", rig_.display().figures().mode);
    fields.add("ordersTaken", std::uint64_t(session_.taken()));
    fields.add("ordersToCome", std::uint64_t(session_.toCome()));
    return fields.add("clients", std::uint64_t(server_->connections()));
}

}  // namespace board
