// The socket for whoever looks on (board/protocol/views.h). Costs nothing while nobody does, and
// waits for nobody: a client that cannot keep up misses something or is disconnected.
#pragma once

#include "board/daemon/listener.h"
#include "board/daemon/rig.h"
#include "board/daemon/watcher.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace board {

class ViewServer final : public Watcher {
  public:
    // Watches the rig, which must outlive the server. Throws std::system_error.
    ViewServer(EventLoop& loop, const std::string& path, Rig& rig);
    ~ViewServer() override;

    void screenChanged(const wire::ViewFlip* flip) override;
    void payloadDelivered(const wire::ViewPayload& about, const std::uint8_t* payload) override;
    void soundMoved(const wire::ViewSound& about, const std::uint8_t* frames,
                    std::size_t bytes) override;
    void soundStopped(wire::ViewCard card) override;

  private:
    struct Client;
    struct Packet;
    using ClientRef = std::shared_ptr<Client>;
    // Frames of a card that wait until they are worth a packet.
    struct SoundPart {
        wire::ViewSound about{};
        std::vector<std::uint8_t> bytes;
    };

    void accepted(int fd);
    void ready(Client& client, std::uint32_t events);
    bool take(Client& client, const std::uint8_t* packet, std::size_t bytes);
    bool begin(Client& client, const std::uint8_t* packet, std::size_t bytes);
    std::vector<ClientRef>& watching(wire::ViewKind kind);
    void showScreen(Client& client);
    void send(Client& client, const Packet& packet);
    void sendSound(SoundPart& part);
    void drop(Client& client);

    EventLoop& loop_;
    Rig& rig_;
    std::unordered_map<int, ClientRef> clients_;
    std::vector<ClientRef> watching_[4];  // by kind
    SoundPart sound_[2];                  // by card
    Listener listener_;
};

}  // namespace board
