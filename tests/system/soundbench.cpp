#include "tests/system/soundbench.h"

#include "tests/support/scenarios.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace {

// Removed with the test program.
class ScenarioFolders {
  public:
    ~ScenarioFolders() {
        for (const std::string& path : paths_) {
            std::error_code gone;
            std::filesystem::remove_all(path, gone);
        }
    }
    const std::string& add() {
        paths_.push_back(makeTemporaryFolder("sound-"));
        return paths_.back();
    }

  private:
    std::vector<std::string> paths_;
};

}  // namespace

std::string soundScenario(const MicrophoneKind& microphone, const std::string& hears,
                          const std::string& output) {
    static ScenarioFolders folders;
    const std::string folder = folders.add();
    std::ostringstream listing;
    listing << "Bench at usb-0000:00:14.0-1, high speed : USB Audio\n\nCapture:\n  Status: Stop\n"
               "  Interface 3\n    Altset 1\n    Format: "
            << microphone.format << "\n    Channels: " << microphone.channels
            << "\n    Endpoint: 0x84 (4 IN) (ASYNC)\n    Rates: " << microphone.rate
            << "\n    Data packet interval: 1000 us\n";
    writeFile(folder + "/stream0.txt", listing.str());
    std::string scenario = readFile(benchScenario("small"));
    scenario.erase(scenario.find_last_of('}'));
    scenario += ", \"hears\": \"" + hears + "\", \"output\": " + output +
                ", \"microphone\": {\"name\": \"bench\", \"stream0\": \"stream0.txt\"";
    if (!microphone.limits.empty()) {
        scenario += ", \"capture\": " + microphone.limits;
    }
    writeFile(folder + "/scenario.json", scenario + "}}\n");
    return folder + "/scenario.json";
}

Recorded readRecorded(const std::string& path) {
    const std::string file = readFile(path);
    const auto number = [&](std::size_t at, unsigned bytes) {
        std::uint32_t value = 0;
        std::memcpy(&value, file.data() + at, bytes);
        return value;
    };
    if (file.size() < 12 || file.compare(0, 4, "RIFF") != 0) {
        throw std::runtime_error(path + ": no WAV file");
    }
    Recorded recorded;
    for (std::size_t at = 12; at + 8 <= file.size();) {
        const std::string name = file.substr(at, 4);
        const std::size_t length = number(at + 4, 4);
        if (name == "fmt ") {
            recorded.channels = number(at + 10, 2);
            recorded.rate = number(at + 12, 4);
            if (number(at + 22, 2) != 16) {
                throw std::runtime_error(path + ": not sixteen bit");
            }
        } else if (name == "data") {
            const std::size_t bytes = std::min(length, file.size() - at - 8);
            recorded.samples.resize(bytes / 2);
            std::memcpy(recorded.samples.data(), file.data() + at + 8, bytes / 2 * 2);
        }
        at += 8 + length + length % 2;
    }
    return recorded;
}

Continuity followRamp(const Recorded& recorded) {
    Continuity seen;
    for (std::size_t i = 0; i < recorded.frames(); ++i) {
        const auto left = static_cast<std::uint16_t>(recorded.at(i, 0));
        seen.foreign +=
            static_cast<std::uint16_t>(recorded.at(i, 1)) != static_cast<std::uint16_t>(left + 1)
                ? 1
                : 0;
        if (i == 0) {
            continue;
        }
        const auto step = static_cast<std::uint16_t>(left - recorded.at(i - 1, 0));
        if (step == 0) {
            ++seen.repeated;
            seen.repeatedAt.push_back(i);
        } else if (step != 1) {
            ++seen.jumps;
        }
    }
    return seen;
}

// Over short windows: a repeated frame shifts the phase of what follows.
ToneFigures measureTone(const Recorded& recorded, unsigned channel, std::size_t from,
                        std::size_t frames) {
    constexpr double expected_Hz = 1000.0;
    const std::size_t window = recorded.rate / 50;
    ToneFigures tone;
    double turned = 0;
    std::complex<double> before;
    const std::size_t windows = frames / window;
    for (std::size_t index = 0; index < windows; ++index) {
        std::complex<double> sum = 0;
        for (std::size_t i = from + index * window; i < from + (index + 1) * window; ++i) {
            sum += recorded.at(i, channel) / 32768.0 *
                   std::polar(1.0, -2 * M_PI * expected_Hz * double(i) / recorded.rate);
        }
        tone.amplitude += 2.0 * std::abs(sum) / double(window) / double(windows);
        turned += index == 0 ? 0.0 : std::arg(sum / before);
        before = sum;
    }
    const double seconds = double((windows - 1) * window) / recorded.rate;
    tone.frequency_Hz = expected_Hz + turned / (2 * M_PI * seconds);
    return tone;
}

double threadTime_s(int pid, const std::vector<std::string>& names) {
    std::uint64_t total_ns = 0;
    std::error_code gone;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            continue;
        }
        std::uint64_t run_ns = 0;
        std::ifstream(task.path() / "schedstat") >> run_ns;
        total_ns += run_ns;
    }
    return double(total_ns) * 1e-9;
}

std::uint64_t ownMemory_kB(int pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    std::uint64_t kilobytes = 0;
    while (status >> word) {
        if (word == "RssAnon:") {
            status >> kilobytes;
            break;
        }
    }
    return kilobytes;
}

}  // namespace support
