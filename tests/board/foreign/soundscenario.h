// What tests of the sound cards share: scenarios, and the client that prints what it sees.
#pragma once

#include "tests/support/client.h"
#include "tests/support/environment.h"

#include <filesystem>
#include <string>
#include <vector>

namespace sound {

// A scenario without pictures; lives as long as the object.
class SoundScenario {
  public:
    SoundScenario(const std::string& microphone, const std::string& output)
        : folder_(support::makeTemporaryFolder("sound-")), path_(folder_ + "/scenario.json") {
        support::writeFile(path_, R"({"name": "sound", "camera": null, "display": null,
            "hears": "ramp", "microphone": ")" +
                                      microphone + R"(", "output": ")" + output + "\"}");
    }
    ~SoundScenario() { std::filesystem::remove_all(folder_); }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return folder_ + "/" + name; }

  private:
    std::string folder_, path_;
};

inline const std::string usualMicrophone = "synthetic-microphone", usualOutput = "synthetic-output";

// Arguments of the client (see soundclient.cpp) for stereo S16 at 48 kHz.
inline std::vector<std::string> client(const std::string& direction, const std::string& device) {
    return {SOUND_CLIENT, direction, device, "48000", "2", "S16_LE"};
}

}  // namespace sound
