#include "tests/board/camera/camerabench.h"

#include <poll.h>
#include <sys/mman.h>

#include <cerrno>
#include <chrono>
#include <future>

namespace board::test {

namespace {

CameraControl control(std::uint32_t id, const std::string& name, ControlType type,
                      std::int64_t minimum, std::int64_t maximum, std::int64_t step,
                      std::int64_t defaultValue) {
    CameraControl made;
    made.id = id;
    made.name = name;
    made.type = type;
    made.minimum = minimum;
    made.maximum = maximum;
    made.step = step;
    made.defaultValue = made.value = defaultValue;
    return made;
}

std::vector<CameraControl> someControls() {
    std::vector<CameraControl> controls;
    controls.push_back(
        control(V4L2_CID_ZOOM_ABSOLUTE, "Zoom, Absolute", ControlType::integer, 100, 500, 10, 100));
    controls.push_back(
        control(V4L2_CID_BRIGHTNESS, "Brightness", ControlType::integer, -64, 64, 1, 0));
    CameraControl exposure =
        control(V4L2_CID_EXPOSURE_AUTO, "Auto Exposure", ControlType::menu, 0, 3, 1, 3);
    exposure.menu = {{1, "Manual Mode"}, {3, "Aperture Priority Mode"}};
    controls.push_back(exposure);
    controls.push_back(control(V4L2_CID_EXPOSURE_ABSOLUTE, "Exposure Time, Absolute",
                               ControlType::integer, 3, 2047, 1, 250));
    controls.push_back(
        control(V4L2_CID_BACKLIGHT_COMPENSATION, "Backlight", ControlType::boolean, 0, 1, 1, 0));
    CameraControl panSpeed =
        control(V4L2_CID_PAN_SPEED, "Pan, Speed", ControlType::integer, -1, 160, 1, 20);
    panSpeed.flags = V4L2_CTRL_FLAG_WRITE_ONLY;
    controls.push_back(panSpeed);
    CameraControl privacy = control(V4L2_CID_PRIVACY, "Privacy", ControlType::boolean, 0, 1, 1, 0);
    privacy.flags = V4L2_CTRL_FLAG_READ_ONLY;
    controls.push_back(privacy);
    return controls;
}

short polledNow(int descriptor) {
    pollfd wanted{descriptor, POLLIN, 0};
    return poll(&wanted, 1, 0) < 0 ? short(-1) : wanted.revents;
}

}  // namespace

CameraDescription smallCamera() {
    CameraDescription camera;
    camera.name = "small";
    camera.card = "Small Camera";
    camera.recording = "field:bars";
    camera.formats = {
        {V4L2_PIX_FMT_YUYV,
         "YUYV 4:2:2",
         false,
         {{640, 480, {{1, 30}, {1, 15}}},
          {64, 48, {{1, 30}, {1, 100}, {1, 200}}},
          {160, 120, {{1, 30}}},
          {640, 480, {{1, 30}, {1, 15}}}}},
        {V4L2_PIX_FMT_NV12, "Y/UV 4:2:0", false, {{64, 48, {{1, 100}}}}},
        {V4L2_PIX_FMT_MJPEG, "Motion-JPEG", true, {{640, 480, {{1, 60}, {1, 30}}}}},
    };
    camera.controls = someControls();
    return camera;
}

int Client::extended(std::uint64_t request, v4l2_ext_controls& header,
                     std::vector<v4l2_ext_control>& items) {
    IoctlCall call;
    call.request = std::uint32_t(request);
    call.argument.resize(sizeof header);
    header.count = std::uint32_t(items.size());
    call.store(header);
    NestedBlock block;
    block.sent.resize(items.size() * sizeof items[0]);
    block.capacity = std::uint32_t(block.sent.size());
    if (!items.empty())
        std::memcpy(block.sent.data(), items.data(), block.sent.size());
    call.blocks.push_back(block);
    const int result = run(call);
    header = call.load<v4l2_ext_controls>();
    EXPECT_LE(call.blocks[0].reply.size(), block.capacity);
    if (!call.blocks[0].reply.empty())
        std::memcpy(items.data(), call.blocks[0].reply.data(), call.blocks[0].reply.size());
    return result;
}

int Client::stream(bool on) {
    std::int32_t type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return (*this)(on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, type);
}

short Client::polled() {
    return polledNow(handle_->clientDescriptor());
}
short Client::polledEvents() {
    return polledNow(handle_->eventDescriptor());
}

int Client::run(IoctlCall& call) {
    int result = 0;
    board_.onLoop([&] { result = handle_->ioctl(call); });
    return result;
}

std::uint32_t Client::state() {
    std::uint32_t bits = 0;
    board_.onLoop([&] { bits = board_.states[handle_->slot]; });
    return bits;
}

void Client::close() {
    if (handle_ != nullptr)
        board_.onLoop([this] { handle_.reset(); });
}

bool Client::knows(std::uint64_t request) {
    return handle_->knows(std::uint32_t(request));
}

Mapping Client::map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) {
    Mapping mapping;
    board_.onLoop([&] { mapping = handle_->map(offset, length, protection); });
    return mapping;
}

void Client::unmapped(std::uint64_t offset, std::uint64_t length) {
    board_.onLoop([&] { handle_->unmapped(offset, length); });
}

bool Client::wait(int deadline_ms) {
    pollfd wanted{handle_->clientDescriptor(), POLLIN, 0};
    return poll(&wanted, 1, deadline_ms) == 1;
}

FakeBoard::FakeBoard(std::uint32_t speed)
    : clock_(speed, EventLoop::now_ns()), thread_([this] { loop_.run(); }) {}

FakeBoard::~FakeBoard() {
    loop_.stop();
    thread_.join();
}

void FakeBoard::onLoop(const std::function<void()>& work) {
    std::promise<void> finished;
    loop_.post([&] {
        work();
        finished.set_value();
    });
    finished.get_future().wait();
}

CameraBench::CameraBench(std::uint32_t speed) : board(speed) {
    board.onLoop([this] { camera = std::make_unique<Camera>(board, smallCamera()); });
}

CameraBench::~CameraBench() {
    board.onLoop([this] { camera.reset(); });
}

std::string CameraBench::plug(unsigned firstNumber) {
    std::string path;
    board.onLoop([&] { path = camera->plug(firstNumber); });
    return path;
}

void CameraBench::unplug() {
    board.onLoop([this] { camera->unplug(); });
}

CameraFigures CameraBench::figures() {
    CameraFigures figures;
    board.onLoop([&] { figures = camera->figures(); });
    return figures;
}

Client CameraBench::open() {
    std::unique_ptr<Handle> handle;
    int error = 0;
    board.onLoop([&] {
        ASSERT_EQ(board.nodes.size(), 1u);
        handle = board.nodes.begin()->second.device->open(0, 1, &error);
        ASSERT_NE(handle, nullptr) << error;
        handle->slot = nextSlot++;
    });
    return Client(board, std::move(handle));
}

bool CameraBench::until(const std::function<bool()>& done, int deadline_ms) {
    const std::int64_t deadline = EventLoop::now_ns() + std::int64_t(deadline_ms) * 1000000;
    for (;;) {
        bool reached = false;
        board.onLoop([&] { reached = done(); });
        if (reached || EventLoop::now_ns() > deadline)
            return reached;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

v4l2_buffer CameraBench::buffer(std::uint32_t index) {
    v4l2_buffer made{};
    made.index = index;
    made.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    made.memory = V4L2_MEMORY_MMAP;
    return made;
}

void CameraBench::prepare(Client& client, std::uint32_t count, v4l2_fract interval) {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = 64;
    format.fmt.pix.height = 48;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    ASSERT_EQ(client(VIDIOC_S_FMT, format), 0);
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.timeperframe = interval;
    ASSERT_EQ(client(VIDIOC_S_PARM, parameters), 0);
    v4l2_requestbuffers request{};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    ASSERT_EQ(request.count, count);
    for (std::uint32_t i = 0; i < count; ++i) {
        v4l2_buffer queued = buffer(i);
        ASSERT_EQ(client(VIDIOC_QBUF, queued), 0);
    }
}

std::vector<std::uint8_t> CameraBench::content(Client& client, const v4l2_buffer& taken) {
    const Mapping mapping = client.map(taken.m.offset, taken.length, PROT_READ);
    void* memory = mmap(nullptr, taken.length, PROT_READ, MAP_SHARED, mapping.memfd, 0);
    EXPECT_NE(memory, MAP_FAILED);
    const auto* first = static_cast<const std::uint8_t*>(memory);
    std::vector<std::uint8_t> copy(first, first + taken.bytesused);
    munmap(memory, taken.length);
    client.unmapped(taken.m.offset, taken.length);
    return copy;
}

v4l2_buffer CameraBench::take(Client& client) {
    EXPECT_TRUE(client.wait());
    v4l2_buffer taken = buffer(0);
    EXPECT_EQ(client(VIDIOC_DQBUF, taken), 0);
    return taken;
}

}  // namespace board::test
