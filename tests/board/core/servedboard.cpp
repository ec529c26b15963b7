#include "tests/board/core/servedboard.h"

#include <drm.h>
#include <drm_mode.h>
#include <linux/videodev2.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <stdexcept>

namespace boardtest {

namespace {

class FakeHandle : public board::Handle {
  public:
    explicit FakeHandle(FakeDevice& device)
        : device_(device),
          fd_(::eventfd(0, EFD_CLOEXEC)),
          companion_(::eventfd(0, EFD_CLOEXEC)),
          memory_(::memfd_create("fake", MFD_CLOEXEC)) {
        ++device_.handles;
    }
    ~FakeHandle() override {
        ::close(fd_);
        ::close(companion_);
        ::close(memory_);
        --device_.handles;
    }
    int clientDescriptor() override { return fd_; }
    int eventDescriptor() override { return companion_; }
    board::wire::Kind kind() const override { return board::wire::Kind::v4l2; }
    bool knows(std::uint32_t request) const override {
        for (const auto known : {VIDIOC_QUERYCAP, VIDIOC_G_EXT_CTRLS, VIDIOC_S_INPUT,
                                 VIDIOC_G_INPUT, DRM_IOCTL_MODE_GETPROPBLOB})
            if (request == std::uint32_t(known))
                return true;
        return false;
    }
    int unknownIoctlError() const override { return ENOTTY; }
    int ioctl(board::IoctlCall& call) override;
    bool replyOnError(std::uint32_t request) const override {
        return request == std::uint32_t(VIDIOC_G_INPUT);
    }
    board::Mapping map(std::uint64_t offset, std::uint64_t, std::uint32_t) override {
        if (offset != 0)
            return {-1, -EINVAL};
        return {memory_, 0};
    }
    void unmapped(std::uint64_t, std::uint64_t) override { ++device_.unmapped; }

  private:
    FakeDevice& device_;
    int fd_, companion_, memory_;
};

int FakeHandle::ioctl(board::IoctlCall& call) {
    ++device_.calls;
    if (call.request == std::uint32_t(VIDIOC_QUERYCAP)) {
        v4l2_capability capability{};
        capability.card[0] = 'F';
        call.store(capability);
    } else if (call.request == std::uint32_t(VIDIOC_G_EXT_CTRLS)) {
        auto controls = call.blocks.at(0).sentAs<v4l2_ext_control>();
        for (auto& control : controls)
            control.value *= 2;
        call.blocks.at(0).replyWith(controls);
    } else if (call.request == std::uint32_t(DRM_IOCTL_MODE_GETPROPBLOB)) {
        call.blocks.at(0).reply.assign(8, std::byte(0x5a));
    } else if (call.request == std::uint32_t(VIDIOC_G_INPUT)) {
        call.store<int>(7);
        return -EBUSY;
    } else {
        throw std::runtime_error("a defect of the device");
    }
    return 0;
}

std::string temporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "board-core-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
    return name;
}

}  // namespace

std::unique_ptr<board::Handle> FakeDevice::open(std::uint32_t, std::uint32_t, int*) {
    return std::make_unique<FakeHandle>(*this);
}

ServedBoard::ServedBoard()
    : folder_(temporaryFolder()),
      board_(std::make_unique<board::CoreBoard>(loop_, folder_, 1)),
      server_(std::make_unique<board::Server>(*board_, faults_)),
      orderServer_(std::make_unique<board::OrderServer>(
          loop_, folder_ + "/" + board::wire::orderSocketName, orders_)) {
    board::addCoreOrders(orders_, *board_, faults_);
    orders_.add("picture",
                [this](board::JsonObject&, const board::OrderDone& done) { pending_ = done; });
    board_->addNode(fakeNode, 81, 3, device_);
    thread_ = std::thread([this] { loop_.run(); });
}

ServedBoard::~ServedBoard() {
    loop_.stop();
    thread_.join();
    orderServer_.reset();
    server_.reset();
    EXPECT_EQ(device_.handles.load(), 0) << "a handle outlived its connection";
    board_.reset();
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/page"));
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/board.sock"));
    std::filesystem::remove_all(folder_);
}

void ServedBoard::onLoop(const std::function<void()>& work) {
    std::promise<void> done;
    loop_.post([&] {
        work();
        done.set_value();
    });
    done.get_future().wait();
}

bool ServedBoard::becomesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    bool holds = false;
    while (!holds && std::chrono::steady_clock::now() < deadline)
        onLoop([&] { holds = condition(); });
    return holds;
}

}  // namespace boardtest
