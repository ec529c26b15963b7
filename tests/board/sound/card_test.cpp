// A whole card: descriptions that are wrong, calls that no sane program makes.
#include "board/daemon/soundcard.h"

#include "board/daemon/scenario.h"
#include "tests/board/sound/soundbench.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

namespace {

namespace fs = std::filesystem;

// Keeps the devices behind the nodes.
class NodeBench : public soundbench::Bench {
  public:
    void addNode(const std::string& path, unsigned, unsigned, board::Device& device) override {
        nodes[path] = &device;
    }
    void removeNode(const std::string& path) override { nodes.erase(path); }
    std::unique_ptr<board::Handle> open(const std::string& path) {
        int error = 0;
        return nodes.at(path)->open(0, 1, &error);
    }
    std::map<std::string, board::Device*> nodes;
};

board::SoundDescription cardNamed(const char* name) {
    return board::loadSound(board::findSound(name));
}

TEST(SoundCards, NodesComeAndGo) {
    NodeBench bench;
    board::SoundCard card(bench, cardNamed("usb-audio-device"), 3, 0);
    card.plug();
    EXPECT_EQ(bench.nodes.size(), 3u);
    EXPECT_EQ(bench.nodes.count("/dev/snd/pcmC3D0p"), 1u);
    EXPECT_EQ(bench.nodes.count("/dev/snd/pcmC3D0c"), 1u);
    EXPECT_EQ(bench.nodes.count("/dev/snd/controlC3"), 1u);
    auto held = bench.open("/dev/snd/pcmC3D0c");
    EXPECT_EQ(card.openHandles(), 1u);
    card.unplug();
    EXPECT_TRUE(bench.nodes.empty());
    EXPECT_EQ(card.openHandles(), 1u);
    held.reset();
    EXPECT_EQ(card.openHandles(), 0u);
    // A card without usable settings has its control node only.
    board::SoundCard mute(bench, cardNamed("nux-nux-mg-300-audio"), 4, 0);
    mute.plug();
    EXPECT_EQ(bench.nodes.size(), 1u);
}

std::vector<std::uint32_t> allRequests() {
    std::vector<std::uint32_t> requests;
    const std::size_t sizes[] = {0,
                                 sizeof(std::int32_t),
                                 sizeof(snd_pcm_uframes_t),
                                 sizeof(snd_pcm_info),
                                 sizeof(snd_pcm_hw_params),
                                 sizeof(snd_pcm_sw_params),
                                 sizeof(snd_pcm_status),
                                 sizeof(snd_pcm_sync_ptr),
                                 sizeof(snd_pcm_channel_info),
                                 sizeof(snd_xferi),
                                 sizeof(snd_ctl_card_info),
                                 sizeof(snd_ctl_elem_list),
                                 sizeof(snd_ctl_elem_info),
                                 sizeof(snd_ctl_elem_value)};
    for (const unsigned direction : {_IOC_NONE, _IOC_READ, _IOC_WRITE, _IOC_READ | _IOC_WRITE})
        for (const char type : {'A', 'U'})
            for (unsigned number = 0; number < 256; ++number)
                for (const std::size_t size : sizes)
                    requests.push_back(std::uint32_t(_IOC(direction, type, number, size)));
    return requests;
}

// Random arguments to everything that the nodes know, in every state.
TEST(SoundCards, SurviveAnyArgument) {
    NodeBench bench;
    board::SoundCard card(bench, cardNamed("usb-audio-device"), 0, 0);
    card.plug();
    std::mt19937 random(7);
    std::map<std::string, std::unique_ptr<board::Handle>> handles;
    std::map<std::string, std::vector<std::uint32_t>> known;
    for (const auto& [path, device] : bench.nodes) {
        handles[path] = bench.open(path);
        for (const std::uint32_t request : allRequests())
            if (handles[path]->knows(request))
                known[path].push_back(request);
        EXPECT_GT(known[path].size(), 10u) << path;
    }
    std::uint64_t succeeded = 0;
    for (int round = 0; round < 30000; ++round) {
        auto node = handles.begin();
        std::advance(node, random() % handles.size());
        const auto& requests = known[node->first];
        board::IoctlCall call;
        call.request = requests[random() % requests.size()];
        call.fileFlags = std::uint32_t(random());
        call.argument.resize(_IOC_SIZE(call.request));
        const bool wild = random() % 2 == 0;
        for (std::byte& byte : call.argument)
            byte = std::byte(wild ? random() : random() % 50 == 0 ? random() % 4 : 0);
        if (call.request == SNDRV_PCM_IOCTL_HW_PARAMS && random() % 2 == 0)
            call.store(soundbench::anyParameters());
        call.blocks.resize(1);
        call.blocks[0].sent.resize(random() % 2000);
        call.blocks[0].capacity = std::uint32_t(random() % 2000);
        succeeded += node->second->ioctl(call) >= 0;
        for (const board::NestedBlock& block : call.blocks)
            ASSERT_LE(block.reply.size(), block.capacity);
        if (round % 1000 == 0)
            bench.runFor(2000000);
    }
    EXPECT_GT(succeeded, 1000u);
    card.unplug();
    for (auto& [path, handle] : handles) {
        board::IoctlCall call;
        call.request = known[path].front();
        call.argument.resize(_IOC_SIZE(call.request));
        EXPECT_EQ(handle->ioctl(call), -ENODEV);
    }
}

TEST(Descriptions, WrongOnesAreOneLine) {
    const fs::path folder = fs::temp_directory_path() / ("card-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const std::string path = folder / "card.json";
    const auto expectError = [&](const std::string& text, const std::string& words) {
        std::ofstream(path) << text;
        try {
            board::loadSound(path);
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& error) {
            const std::string line = error.what();
            EXPECT_NE(line.find(words), std::string::npos) << line;
            EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        }
    };
    expectError("{}", "\"name\" is missing");
    expectError(R"({"name": "a", "stream0": "none.txt"})", "none.txt: no such listing");
    expectError(R"({"name": "a", "colour": 1})", "colour");
    const auto withSetting = [](const std::string& setting) {
        return R"({"name": "a", "capture": {"settings": [)" + setting + "]}}";
    };
    expectError(withSetting(R"({"formats": ["S17"], "channels": 2, "rates": [48000]})"), "S17");
    expectError(withSetting(R"({"formats": ["S16_LE"], "channels": 0, "rates": [48000]})"),
                "channels");
    expectError(withSetting(R"({"formats": ["S16_LE"], "channels": [3, 2], "rates": [1]})"),
                "channels");
    expectError(withSetting(R"({"formats": ["S16_LE"], "channels": 2, "rates": []})"),
                "must name a rate");
    expectError(R"({"name": "a", "capture": {"periodBytes": [64]}})", "must be [least, most]");
    fs::remove_all(folder);
}

}  // namespace
