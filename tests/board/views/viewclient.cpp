#include "tests/board/views/viewclient.h"

#include <drm_fourcc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace views {

namespace {

// A descriptor's memory, mapped for reading.
class Memory {
  public:
    explicit Memory(int descriptor) {
        struct stat status {};
        if (::fstat(descriptor, &status) != 0)
            throw std::runtime_error("fstat failed");
        length_ = std::size_t(status.st_size);
        address_ = ::mmap(nullptr, length_, PROT_READ, MAP_SHARED, descriptor, 0);
        if (address_ == MAP_FAILED)
            throw std::runtime_error(std::string("mmap: ") + std::strerror(errno));
    }
    ~Memory() { ::munmap(address_, length_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    const std::uint8_t* at(std::size_t offset, std::size_t bytes) const {
        if (offset > length_ || bytes > length_ - offset)
            throw std::runtime_error("outside the memory");
        return static_cast<const std::uint8_t*>(address_) + offset;
    }
    std::size_t length() const { return length_; }

  private:
    void* address_ = nullptr;
    std::size_t length_ = 0;
};

}  // namespace

Packet::Packet(std::vector<std::uint8_t> bytes, std::vector<int> descriptors)
    : bytes_(std::move(bytes)), descriptors_(std::move(descriptors)) {}

Packet::Packet(Packet&& other) noexcept
    : bytes_(std::move(other.bytes_)), descriptors_(std::exchange(other.descriptors_, {})) {}

Packet::~Packet() {
    for (const int descriptor : descriptors_)
        ::close(descriptor);
}

void Packet::copy(void* to, std::size_t bytes) const {
    if (bytes_.size() < bytes)
        throw std::runtime_error("a packet of " + std::to_string(bytes_.size()) + " bytes");
    std::memcpy(to, bytes_.data(), bytes);
}

std::vector<std::uint8_t> Packet::memory(std::size_t index) const {
    const Memory memory(descriptors_.at(index));
    const std::uint8_t* first = memory.at(0, memory.length());
    return {first, first + memory.length()};
}

ViewClient::ViewClient(const std::string& folder)
    : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder + "/" + wire::viewSocketName;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
}

ViewClient::ViewClient(const std::string& folder, wire::ViewKind kind) : ViewClient(folder) {
    ask(kind);
}

ViewClient::~ViewClient() {
    ::close(socket_);
}

bool ViewClient::send(const void* packet, std::size_t bytes) {
    return ::send(socket_, packet, bytes, MSG_NOSIGNAL) == ssize_t(bytes);
}

bool ViewClient::ask(wire::ViewKind kind, std::uint32_t version) {
    const wire::ViewRequest request{version, kind};
    return send(&request, sizeof request);
}

bool ViewClient::grant(unsigned packets) {
    bool sent = true;
    for (unsigned i = 0; i < packets && sent; ++i)
        sent = send("+", 1);
    return sent;
}

std::optional<Packet> ViewClient::receive(support::Milliseconds patience) {
    pollfd waiting = {socket_, POLLIN, 0};
    if (::poll(&waiting, 1, int(support::scaled(patience).count())) != 1)
        return std::nullopt;
    std::vector<std::uint8_t> bytes(sizeof(wire::ViewSound) + wire::maxViewSoundBytes);
    iovec part = {bytes.data(), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t length = ::recvmsg(socket_, &message, MSG_CMSG_CLOEXEC);
    if (length <= 0)
        return std::nullopt;
    bytes.resize(std::size_t(length));
    std::vector<int> descriptors;
    for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry; entry = CMSG_NXTHDR(&message, entry)) {
        descriptors.resize((entry->cmsg_len - CMSG_LEN(0)) / sizeof(int));
        std::memcpy(descriptors.data(), CMSG_DATA(entry), descriptors.size() * sizeof(int));
    }
    return Packet(std::move(bytes), std::move(descriptors));
}

bool ViewClient::hungUp(support::Milliseconds patience) {
    const auto deadline = support::Clock::now() + support::scaled(patience);
    while (support::Clock::now() < deadline) {
        pollfd waiting = {socket_, POLLIN, 0};
        if (::poll(&waiting, 1, 100) == 1 && (waiting.revents & POLLHUP) != 0)
            return true;
        if ((waiting.revents & POLLIN) != 0)
            receive(support::Milliseconds(0));
    }
    return false;
}

std::vector<std::uint8_t> visiblePart(const Packet& packet) {
    const auto picture = packet.as<wire::ViewPicture>();
    std::vector<std::uint8_t> result;
    if (picture.format == 0)
        return result;
    const bool nv12 = picture.format == DRM_FORMAT_NV12;
    const std::size_t lineBytes = nv12 ? picture.width : std::size_t(picture.width) * 4;
    for (unsigned plane = 0; plane < (nv12 ? 2 : 1); ++plane) {
        const Memory memory(packet.descriptors().at(packet.descriptors().size() == 2 ? plane : 0));
        const std::uint32_t lines = plane == 0 ? picture.height : picture.height / 2;
        for (std::uint32_t line = 0; line < lines; ++line) {
            const std::uint8_t* from = memory.at(
                picture.offsets[plane] + std::size_t(line) * picture.pitches[plane], lineBytes);
            result.insert(result.end(), from, from + lineBytes);
        }
    }
    return result;
}

}  // namespace views
