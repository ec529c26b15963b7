#include "tests/board/display/displayrig.h"

#include "board/media/stamp.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <future>
#include <utility>

namespace board::test {

namespace {

constexpr std::uint32_t connectorId = 33, crtcId = 31, encoderId = 32;

}  // namespace

DisplayMode mode1080p60() {
    DisplayMode mode;
    mode.name = "1920x1080";
    mode.clock_kHz = 148500;
    mode.hdisplay = 1920;
    mode.hsyncStart = 2008;
    mode.hsyncEnd = 2052;
    mode.htotal = 2200;
    mode.vdisplay = 1080;
    mode.vsyncStart = 1084;
    mode.vsyncEnd = 1089;
    mode.vtotal = 1125;
    mode.vrefresh_Hz = 60;
    mode.flags = DRM_MODE_FLAG_PHSYNC | DRM_MODE_FLAG_PVSYNC;
    mode.type = DRM_MODE_TYPE_DRIVER;
    return mode;
}

DisplayMode smallMode(std::uint16_t width, std::uint16_t height, std::uint32_t refresh_Hz) {
    DisplayMode mode;
    mode.name = std::to_string(width) + "x" + std::to_string(height);
    mode.hdisplay = width;
    mode.hsyncStart = std::uint16_t(width + 8);
    mode.hsyncEnd = std::uint16_t(width + 16);
    mode.htotal = std::uint16_t(width + 40);
    mode.vdisplay = height;
    mode.vsyncStart = std::uint16_t(height + 2);
    mode.vsyncEnd = std::uint16_t(height + 4);
    mode.vtotal = std::uint16_t(height + 20);
    mode.clock_kHz = mode.htotal * std::uint32_t(mode.vtotal) * refresh_Hz / 1000;
    mode.vrefresh_Hz = refresh_Hz;
    return mode;
}

DisplayDescription displayWith(std::vector<DisplayMode> modes) {
    DisplayDescription description;
    description.name = "test";
    description.widthMm = 520;
    description.heightMm = 320;
    description.modes = std::move(modes);
    description.edid.assign(256, 0);
    description.edid[1] = 0xff;
    description.edid[255] = 0x5a;
    return description;
}

FakeBoard::FakeBoard(std::uint32_t speed)
    : clock_(speed, EventLoop::now_ns()), thread_([this] { loop_.run(); }) {}

FakeBoard::~FakeBoard() {
    loop_.stop();
    thread_.join();
}

void FakeBoard::addNode(const std::string& path, unsigned major, unsigned minor, Device& added) {
    nodePath = path;
    nodeMajor = major;
    nodeMinor = minor;
    device = &added;
}

void FakeBoard::run(const std::function<void()>& work) {
    std::promise<void> finished;
    loop_.post([&] {
        work();
        finished.set_value();
    });
    finished.get_future().wait();
}

Client::Client(FakeBoard& board) : board_(board) {
    int error = 0;
    board_.run([&] { handle_ = board_.device->open(0, 4711, &error); });
}

Client::~Client() {
    board_.run([&] { handle_.reset(); });
}

int Client::call(IoctlCall& ioctlCall) {
    int result = 0;
    board_.run([&] { result = handle_->ioctl(ioctlCall); });
    return result;
}

Mapping Client::map(std::uint64_t offset, std::uint64_t length) {
    Mapping mapping;
    board_.run([&] { mapping = handle_->map(offset, length, PROT_READ | PROT_WRITE); });
    return mapping;
}

int Client::descriptor() {
    return handle_->clientDescriptor();
}

std::optional<drm_event_vblank> Client::event(int timeout_ms) {
    pollfd waiting = {descriptor(), POLLIN, 0};
    if (poll(&waiting, 1, timeout_ms) != 1)
        return std::nullopt;
    drm_event_vblank event{};
    char message[1024];
    if (recv(descriptor(), message, sizeof message, MSG_DONTWAIT) != ssize_t(sizeof event))
        return std::nullopt;
    std::memcpy(&event, message, sizeof event);
    return event;
}

drm_mode_get_connector Client::connector() {
    drm_mode_get_connector connector{};
    connector.connector_id = connectorId;
    call(DRM_IOCTL_MODE_GETCONNECTOR, connector);
    return connector;
}

std::vector<drm_mode_modeinfo> Client::modes() {
    IoctlCall ioctlCall;
    ioctlCall.request = DRM_IOCTL_MODE_GETCONNECTOR;
    ioctlCall.argument.resize(sizeof(drm_mode_get_connector));
    drm_mode_get_connector connector{};
    connector.connector_id = connectorId;
    ioctlCall.store(connector);
    ioctlCall.blocks.resize(4);
    ioctlCall.blocks[1].capacity = 100 * sizeof(drm_mode_modeinfo);
    call(ioctlCall);
    NestedBlock& list = ioctlCall.blocks[1];
    list.sent = list.reply;
    return list.sent.empty() ? std::vector<drm_mode_modeinfo>() : list.sentAs<drm_mode_modeinfo>();
}

drm_mode_get_encoder Client::encoder() {
    drm_mode_get_encoder encoder{};
    encoder.encoder_id = encoderId;
    call(DRM_IOCTL_MODE_GETENCODER, encoder);
    return encoder;
}

drm_mode_crtc Client::crtc() {
    drm_mode_crtc crtc{};
    crtc.crtc_id = crtcId;
    call(DRM_IOCTL_MODE_GETCRTC, crtc);
    return crtc;
}

int Client::setCrtc(std::uint32_t framebufferId, const drm_mode_modeinfo& mode) {
    drm_mode_crtc wanted{};
    wanted.crtc_id = crtcId;
    wanted.fb_id = framebufferId;
    wanted.count_connectors = 1;
    wanted.mode_valid = 1;
    wanted.mode = mode;
    IoctlCall ioctlCall;
    ioctlCall.request = DRM_IOCTL_MODE_SETCRTC;
    ioctlCall.argument.resize(sizeof wanted);
    ioctlCall.store(wanted);
    ioctlCall.blocks.resize(1);
    ioctlCall.blocks[0].sent.resize(sizeof connectorId);
    std::memcpy(ioctlCall.blocks[0].sent.data(), &connectorId, sizeof connectorId);
    return call(ioctlCall);
}

int Client::crtcOff() {
    drm_mode_crtc wanted{};
    wanted.crtc_id = crtcId;
    return call(DRM_IOCTL_MODE_SETCRTC, wanted);
}

int Client::flip(std::uint32_t framebufferId, std::uint64_t userData, std::uint32_t flags) {
    drm_mode_crtc_page_flip wanted{};
    wanted.crtc_id = crtcId;
    wanted.fb_id = framebufferId;
    wanted.flags = flags;
    wanted.user_data = userData;
    return call(DRM_IOCTL_MODE_PAGE_FLIP, wanted);
}

int Client::removeFramebuffer(std::uint32_t framebufferId) {
    return call(DRM_IOCTL_MODE_RMFB, framebufferId);
}

Canvas::Canvas(Client& client, std::uint32_t width, std::uint32_t height, std::uint32_t format)
    : width_(width), height_(height), format_(format) {
    const bool nv12 = format == DRM_FORMAT_NV12;
    drm_mode_create_dumb dumb{};
    dumb.width = width;
    dumb.height = nv12 ? height * 3 / 2 : height;
    dumb.bpp = nv12 ? 8 : 32;
    if (client.call(DRM_IOCTL_MODE_CREATE_DUMB, dumb) != 0)
        return;
    handle_ = dumb.handle;
    pitch_ = dumb.pitch;
    size_ = dumb.size;
    drm_mode_map_dumb place{};
    place.handle = handle_;
    if (client.call(DRM_IOCTL_MODE_MAP_DUMB, place) != 0)
        return;
    const Mapping mapping = client.map(place.offset, size_);
    void* address = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, mapping.memfd, 0);
    if (address == MAP_FAILED)
        return;
    pixels_ = static_cast<std::uint8_t*>(address);
    drm_mode_fb_cmd2 wanted{};
    wanted.width = width;
    wanted.height = height;
    wanted.pixel_format = format;
    for (unsigned plane = 0; plane < (nv12 ? 2u : 1u); ++plane) {
        wanted.handles[plane] = handle_;
        wanted.pitches[plane] = pitch_;
        wanted.offsets[plane] = plane * pitch_ * height;
    }
    if (client.call(DRM_IOCTL_MODE_ADDFB2, wanted) == 0)
        framebufferId_ = wanted.fb_id;
}

Canvas::~Canvas() {
    if (pixels_ != nullptr)
        munmap(pixels_, size_);
}

void Canvas::fill(std::uint8_t luma, std::uint8_t cb, std::uint8_t cr) {
    std::memset(pixels_, luma, std::size_t(pitch_) * height_);
    std::uint8_t* chroma = pixels_ + std::size_t(pitch_) * height_;
    for (std::size_t i = 0; i < std::size_t(pitch_) * (height_ / 2); i += 2) {
        chroma[i] = cb;
        chroma[i + 1] = cr;
    }
}

void Canvas::stamp(std::uint32_t frame, std::uint32_t time_100us) {
    Stamp mark;
    mark.frame = frame;
    mark.time_100us = time_100us;
    if (format_ == DRM_FORMAT_NV12) {
        drawStampLuma(pixels_, 1, pitch_, width_, mark);
        return;
    }
    for (std::uint32_t channel = 0; channel < 3; ++channel)
        drawStampLuma(pixels_ + channel, 4, pitch_, width_, mark);
}

Rig::Rig(const DisplayDescription& description, bool plugged, std::uint32_t speed) : board(speed) {
    board.run([&] {
        display = std::make_unique<Display>(board, description);
        display->addCard();
        if (plugged)
            display->plug();
    });
}

Rig::~Rig() {
    board.run([&] { display.reset(); });
}

DisplayFigures Rig::figures() {
    DisplayFigures result;
    board.run([&] { result = display->figures(); });
    return result;
}

std::string Rig::await(const std::function<void(std::function<void(const std::string&)>)>& order) {
    // Shared: an answer that comes too late must not meet a gone promise.
    const auto answer = std::make_shared<std::promise<std::string>>();
    std::future<std::string> future = answer->get_future();
    board.run([&] { order([answer](const std::string& line) { answer->set_value(line); }); });
    if (future.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
        return "no answer";
    return future.get();
}

}  // namespace board::test
